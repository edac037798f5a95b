// Who has failed to sign in, in the registry, and how long that holds up the next attempt.
#pragma once

#include <string>

#include "platform/standalone/store/database.h"

namespace standalone {

/// Somebody at the door. Both are what the client says or where it is, and stored as hashes alone:
/// people type passwords where names belong.
struct Caller {
    std::string account;  ///< whether there is one of that name or not
    std::string address;  ///< of IPv6 the first 64 bits count: who has one has all of them
};

/// The stored failures. Each failure beyond FREE_FAILURES doubles the wait for the next attempt,
/// from a second on: by account up to LONGEST_ACCOUNT_WAIT, by address up to LONGEST_ADDRESS_WAIT.
/// Nothing is held against an address of the machine itself: a proxy has everybody come from there.
/// Failures are forgotten an hour after the last one. When the clock was set back, what it has yet
/// to reach counts from the moment that somebody asks: nobody waits for a clock to catch up.
///
/// No stranger keeps an administrator out: failures of others do not hold up whoever comes from an
/// address from which the account has signed in within the last 30 days.
///
/// Times are milliseconds since the epoch. Any call may throw DatabaseError.
class SignInStore {
public:
    static constexpr long long FREE_FAILURES = 3;
    static constexpr long long LONGEST_ACCOUNT_WAIT = 30'000;
    static constexpr long long LONGEST_ADDRESS_WAIT = 300'000;

    explicit SignInStore(Database& database) : database_(database) {}

    /// How long the caller's next attempt has to wait; 0: it need not.
    long long wait(const Caller& caller, long long now);

    /// Keeps a failure.
    /// @return whether it is the first one that holds the account or the address up
    bool note_failure(const Caller& caller, long long now);

    /// Forgets the failures of both, and remembers that the account was here.
    void note_success(const Caller& caller, long long now);

private:
    long long wait_of(int kind, const std::string& subject, long long now);
    long long add_failure(int kind, const std::string& subject, long long now);
    void bring_back(long long now);
    bool is_known(const Caller& caller, long long now);

    Database& database_;
};

}  // namespace standalone
