// Who is signed in: the routes of "session", and what every other route asks first.
#pragma once

#include "console/reply.h"
#include "console/request.h"
#include "platform/standalone/store/session_store.h"

namespace console {

/// Checks that the request's session is an administrator's, and has its idle time begin anew unless
/// the page asked by itself (parameter "poll").
/// @throws Refusal 401 "no_session", 403 "not_administrator"
standalone::OwnSession require_administrator(const Request& request);

/// @param headers as Reply's
Reply session_reply(const standalone::OwnSession& session, std::vector<std::string> headers = {});

/// GET: whose session it is, and until when.
Reply get_session(const Request& request);

/// DELETE: closes it, if there is one.
Reply close_session(const Request& request);

}  // namespace console
