// Who has failed to sign in, in the registry, and how long that holds up the next attempt.
#include "platform/standalone/store/sign_in_store.h"

#include <arpa/inet.h>

#include <algorithm>
#include <span>

#include "platform/standalone/store/digest.h"

namespace standalone {

namespace {

// Stored.
enum Kind { ACCOUNT = 0, ADDRESS = 1, KNOWN = 2 };

constexpr long long SECOND = 1000;
constexpr long long FORGOTTEN_AFTER = 3'600 * SECOND;
constexpr long long KNOWN_FOR = 30 * 24 * 3'600 * SECOND;

long long wait_after(int kind, long long failures) {
    if (failures <= SignInStore::FREE_FAILURES) return 0;
    const long long longest =
        kind == ACCOUNT ? SignInStore::LONGEST_ACCOUNT_WAIT : SignInStore::LONGEST_ADDRESS_WAIT;
    const long long doublings = std::min(failures - SignInStore::FREE_FAILURES - 1, 20LL);
    return std::min(SECOND << doublings, longest);
}

/// An address of the machine itself is a proxy's, or of nobody who needs a password.
bool tells_callers_apart(const std::string& address) {
    return !address.empty() && address != "::1" && !address.starts_with("127.");
}

/// Where a caller is: one who has an address of IPv6 has all that share its first 64 bits.
std::string place_of(const std::string& address) {
    in6_addr parsed{};
    if (inet_pton(AF_INET6, address.substr(0, address.find('%')).c_str(), &parsed) != 1 ||
        IN6_IS_ADDR_V4MAPPED(&parsed))
        return address;
    return hex(std::span(parsed.s6_addr).first(8));
}

std::string pair_of(const Caller& caller) {
    return caller.account + '\n' + place_of(caller.address);
}

}  // namespace

bool SignInStore::is_known(const Caller& caller, long long now) {
    if (!tells_callers_apart(caller.address)) return false;
    Statement row =
        database_.prepare("SELECT 1 FROM sign_in WHERE kind = ? AND subject = ? AND last_ms > ?");
    row.bind(1, KNOWN).bind(2, sha256_hex(pair_of(caller))).bind(3, now - KNOWN_FOR);
    return row.step();
}

long long SignInStore::wait_of(int kind, const std::string& subject, long long now) {
    Statement row = database_.prepare(
        "SELECT failures, last_ms FROM sign_in WHERE kind = ? AND subject = ? AND last_ms > ?");
    row.bind(1, kind).bind(2, sha256_hex(subject)).bind(3, now - FORGOTTEN_AFTER);
    if (!row.step()) return 0;
    const long long wait = wait_after(kind, row.integer(0));
    const long long last = row.integer(1);
    row.reset();
    if (last > now) bring_back(now);
    return std::max(std::min(last, now) + wait - now, 0LL);
}

void SignInStore::bring_back(long long now) {
    database_.prepare("UPDATE sign_in SET last_ms = ?1 WHERE last_ms > ?1").bind(1, now).step();
}

long long SignInStore::wait(const Caller& caller, long long now) {
    const long long by_account = is_known(caller, now) ? 0 : wait_of(ACCOUNT, caller.account, now);
    if (!tells_callers_apart(caller.address)) return by_account;
    return std::max(by_account, wait_of(ADDRESS, place_of(caller.address), now));
}

long long SignInStore::add_failure(int kind, const std::string& subject, long long now) {
    Statement row = database_.prepare(
        "INSERT INTO sign_in (kind, subject, failures, last_ms) VALUES (?1, ?2, 1, ?3) "
        "ON CONFLICT (kind, subject) DO UPDATE SET failures = failures + 1, last_ms = ?3 "
        "RETURNING failures");
    row.bind(1, kind).bind(2, sha256_hex(subject)).bind(3, now).step();
    const long long failures = row.integer(0);
    while (row.step()) continue;
    return failures;
}

bool SignInStore::note_failure(const Caller& caller, long long now) {
    Transaction transaction(database_);
    database_.prepare("DELETE FROM sign_in WHERE last_ms <= CASE kind WHEN 2 THEN ? ELSE ? END")
        .bind(1, now - KNOWN_FOR)
        .bind(2, now - FORGOTTEN_AFTER)
        .step();
    bool first = add_failure(ACCOUNT, caller.account, now) == FREE_FAILURES + 1;
    if (tells_callers_apart(caller.address))
        first |= add_failure(ADDRESS, place_of(caller.address), now) == FREE_FAILURES + 1;
    transaction.commit();
    return first;
}

void SignInStore::note_success(const Caller& caller, long long now) {
    Transaction transaction(database_);
    Statement removal = database_.prepare("DELETE FROM sign_in WHERE kind = ? AND subject = ?");
    removal.bind(1, ACCOUNT).bind(2, sha256_hex(caller.account)).step();
    removal.reset();
    removal.bind(1, ADDRESS).bind(2, sha256_hex(place_of(caller.address))).step();
    if (tells_callers_apart(caller.address)) {
        Statement known = database_.prepare(
            "INSERT OR REPLACE INTO sign_in (kind, subject, failures, last_ms) "
            "VALUES (?, ?, 0, ?)");
        known.bind(1, KNOWN).bind(2, sha256_hex(pair_of(caller))).bind(3, now).step();
    }
    transaction.commit();
}

}  // namespace standalone
