// POST session: signing in by name and password.
#include "console/sign_in.h"

#include <utility>

#include "console/cookie.h"
#include "console/hashing_turn.h"
#include "console/session_routes.h"
#include "platform/event_ids.h"
#include "platform/recorder_log.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/sign_in_store.h"
#include "platform/utilities.h"

namespace console {

namespace {

using standalone::Caller;
using standalone::CheckedUser;
using standalone::SessionStore;
using standalone::SignInStore;
using standalone::UserStore;

constexpr std::size_t LONGEST_NAME = 1023;
constexpr std::size_t LONGEST_PASSWORD = 4096;

long long now() {
    return static_cast<long long>(current_time_stamp());
}

/// Whole seconds until the caller may try again; nothing: at once.
std::optional<long long> seconds_to_wait(SignInStore& store, const Caller& caller) {
    const long long wait = store.wait(caller, now());
    if (wait == 0) return {};
    return (wait + 999) / 1000;
}

void require_no_wait(SignInStore& store, const Caller& caller) {
    if (const auto seconds = seconds_to_wait(store, caller))
        throw Refusal{.status = 429,
                      .code = "too_early",
                      .text = "Signing in has failed too often; wait before you try again.",
                      .retry_after = seconds};
}

void tell(unsigned event_id, const Caller& caller, const std::string& name) {
    send_surveillance_event_log(event_id, -1, caller.address.c_str(), events::APPLICATION, "",
                                name.c_str(), nullptr);
}

void note_failure(SignInStore& store, const Caller& caller, const std::string& name) {
    const bool first_wait = store.note_failure(caller, now());
    tell(events::SIGN_IN_FAILED, caller, name);
    if (first_wait) tell(events::SIGN_IN_HELD_UP, caller, name);
}

Refusal wrong_sign_in(SignInStore& store, const Caller& caller) {
    return {.status = 401,
            .code = "wrong_sign_in",
            .text = "The name or the password is wrong.",
            .retry_after = seconds_to_wait(store, caller)};
}

/// A name of no account may be a password, typed in the wrong place.
constexpr char NO_ACCOUNT[] = "an unknown name";

/// One try, when its turn has come. The wait is looked at then, too: otherwise all who come at the
/// same time would have a try each.
std::optional<CheckedUser> try_password(SignInStore& store, UserStore& users, const Caller& caller,
                                        const std::string& password) {
    const bool is_account = users.exists(caller.account);
    const HashingTurn turn(is_account ? Line::accounts : Line::strangers);
    require_no_wait(store, caller);
    auto checked = users.check_password(caller.account, password);
    if (!checked) note_failure(store, caller, is_account ? caller.account : NO_ACCOUNT);
    return checked;
}

/// A wrong password stands in the strangers' line besides: how long a refusal takes does not tell
/// whether there is an account of the name.
void wait_as_a_stranger(UserStore& users, const Caller& caller) {
    if (users.exists(caller.account)) const HashingTurn turn(Line::strangers);
}

CheckedUser check(SignInStore& store, UserStore& users, const Caller& caller,
                  const std::string& password) {
    require_no_wait(store, caller);
    auto checked = try_password(store, users, caller, password);
    if (!checked) {
        wait_as_a_stranger(users, caller);
        throw wrong_sign_in(store, caller);
    }
    if (checked->user.level < ADMINISTRATOR_LEVEL) throw not_administrator();
    return std::move(*checked);
}

}  // namespace

Reply open_session(const Request& request) {
    const Body body(request.body);
    const Caller caller{.account = body.text("name", LONGEST_NAME), .address = request.address};
    const std::string password = body.text("password", LONGEST_PASSWORD);
    UserStore users(standalone::registry_for_writing());
    SignInStore store(standalone::registry_for_writing());
    const CheckedUser checked = check(store, users, caller, password);
    SessionStore sessions(standalone::registry_for_writing());
    const auto sid = sessions.open_sliding(checked);
    if (!sid) {
        note_failure(store, caller, caller.account);
        throw wrong_sign_in(store, caller);
    }
    store.note_success(caller, now());
    if (!request.sid.empty()) sessions.close(request.sid);
    return session_reply(
        sessions.look(*sid).value(),
        {session_cookie(*sid, standalone::LONGEST_MINUTES * 60, request.behind_tls)});
}

}  // namespace console
