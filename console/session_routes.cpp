// Who is signed in: the routes of "session", and what every other route asks first.
#include "console/session_routes.h"

#include "console/cookie.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/registry_answers.h"

namespace console {

namespace {

using standalone::OwnSession;
using standalone::SessionStore;

}  // namespace

Reply session_reply(const OwnSession& session, std::vector<std::string> headers) {
    Json object = Json::object();
    object.add("user", session.user.name);
    object.add("level", session.user.level);
    object.add("expires", session.expires_ms / 1000);
    object.add("ends", session.ends_ms / 1000);
    return json_reply(object, headers);
}

OwnSession require_administrator(const Request& request) {
    auto session = request.sid.empty() ? std::nullopt : standalone::known_session(request.sid);
    if (!session)
        throw Refusal{.status = 401, .code = "no_session", .text = "Nobody is signed in."};
    if (session->user.level < ADMINISTRATOR_LEVEL) throw not_administrator();
    if (request.parameter("poll") == "1") return *session;
    if (SessionStore::gains_by_use(*session))
        session->expires_ms =
            SessionStore(standalone::registry_for_writing()).slide(request.sid, *session);
    return *session;
}

Reply get_session(const Request& request) {
    return session_reply(require_administrator(request));
}

Reply close_session(const Request& request) {
    if (!request.sid.empty()) SessionStore(standalone::registry_for_writing()).close(request.sid);
    return {.status = 204, .headers = {session_cookie("", 0, request.behind_tls)}};
}

}  // namespace console
