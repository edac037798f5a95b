// Sessions of the recorder's users, in the registry.
#include "platform/standalone/store/session_store.h"

#include <sodium.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "platform/standalone/store/digest.h"
#include "platform/utilities.h"

namespace standalone {

namespace {

constexpr std::size_t SID_BYTES = 16;
constexpr long long MINUTE_MS = 60'000;

std::string hash_sid(const std::string& sid) {
    return sha256_hex(sid);
}

long long now() {
    return static_cast<long long>(current_time_stamp());
}

long long end_by_use(const OwnSession& session) {
    return std::min(session.ends_ms, now() + IDLE_MINUTES * MINUTE_MS);
}

}  // namespace

std::string SessionStore::open(const std::string& user, long long minutes) {
    Transaction transaction(database_);
    std::string sid = add(user, minutes, {});
    transaction.commit();
    return sid;
}

std::optional<std::string> SessionStore::open_sliding(const CheckedUser& checked) {
    Transaction transaction(database_);
    if (!is_still(checked)) return {};
    std::string sid = add(checked.user.name, IDLE_MINUTES, LONGEST_MINUTES);
    transaction.commit();
    return sid;
}

bool SessionStore::is_still(const CheckedUser& checked) {
    Statement row = database_.prepare("SELECT 1 FROM user WHERE name = ? AND password_hash = ?");
    return row.bind(1, checked.user.name).bind(2, checked.password_hash).step();
}

std::string SessionStore::add(const std::string& user, long long minutes,
                              std::optional<long long> longest) {
    if (sodium_init() < 0) throw std::runtime_error("no source of random numbers");
    std::array<unsigned char, SID_BYTES> random{};
    randombytes_buf(random.data(), random.size());
    std::string sid = hex(random);
    database_.prepare("DELETE FROM session WHERE expires_ms <= ?").bind(1, now()).step();
    const long long opened = now();
    Statement insert = database_.prepare(
        "INSERT INTO session (sid_hash, user, opened_ms, expires_ms, ends_ms) "
        "VALUES (?, ?, ?, ?, ?)");
    insert.bind(1, hash_sid(sid)).bind(2, user);
    insert.bind(3, opened).bind(4, opened + minutes * MINUTE_MS);
    if (longest) insert.bind(5, opened + *longest * MINUTE_MS);
    insert.step();
    return sid;
}

bool SessionStore::close(const std::string& sid) {
    database_.prepare("DELETE FROM session WHERE sid_hash = ?").bind(1, hash_sid(sid)).step();
    return database_.changes() > 0;
}

std::vector<Session> SessionStore::list() {
    std::vector<Session> sessions;
    Statement row = database_.prepare(
        "SELECT user, opened_ms, expires_ms FROM session WHERE expires_ms > ? "
        "ORDER BY user, expires_ms");
    row.bind(1, now());
    while (row.step()) {
        Session session{.user = row.text(0), .opened_ms = {}, .expires_ms = row.integer(2)};
        if (!row.is_null(1)) session.opened_ms = row.integer(1);
        sessions.push_back(std::move(session));
    }
    return sessions;
}

std::optional<OwnSession> SessionStore::look(const std::string& sid) {
    Statement row = database_.prepare(
        "SELECT name, level, expires_ms, coalesce(ends_ms, expires_ms) FROM session "
        "JOIN user ON name = user WHERE sid_hash = ? AND expires_ms > ?");
    if (!row.bind(1, hash_sid(sid)).bind(2, now()).step()) return {};
    return OwnSession{.user = {row.text(0), static_cast<unsigned>(row.integer(1))},
                      .expires_ms = row.integer(2),
                      .ends_ms = row.integer(3)};
}

bool SessionStore::gains_by_use(const OwnSession& session) {
    return end_by_use(session) >= session.expires_ms + MINUTE_MS;
}

long long SessionStore::slide(const std::string& sid, const OwnSession& session) {
    if (!gains_by_use(session)) return session.expires_ms;
    const long long expires = end_by_use(session);
    Statement update = database_.prepare(
        "UPDATE session SET expires_ms = ? WHERE sid_hash = ? AND ends_ms IS NOT NULL");
    update.bind(1, expires).bind(2, hash_sid(sid)).step();
    return expires;
}

}  // namespace standalone
