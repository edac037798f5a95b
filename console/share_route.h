// POST shares: a server's shares, as its account sees them.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// Asks the body's "server" as "user", with "password" or with the one that the task of identifier
/// "task" has; "port" is 445 where it is missing. The password reaches the listing tool in a file
/// that nobody else can read.
/// @throws Refusal 422 "wrong_account", "no_server" or "server_failed" for what the tool says
Reply list_shares(const Request& request);

}  // namespace console
