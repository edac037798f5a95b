// POST session: signing in by name and password.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// Opens a session for an administrator's name and password, and closes the one that the request
/// came with. Whoever fails too often has to wait (SignInStore); a name of no account takes as long
/// to be refused as a wrong password. Failures are events of the log.
/// @throws Refusal 401 "wrong_sign_in", 403 "not_administrator", 429 "too_early", 503 "busy"
Reply open_session(const Request& request);

}  // namespace console
