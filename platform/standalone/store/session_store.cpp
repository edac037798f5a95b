// Sessions of the recorder's users, in the registry.
#include "platform/standalone/store/session_store.h"

#include <sodium.h>

#include <array>
#include <span>
#include <stdexcept>
#include <utility>

#include "platform/utilities.h"

namespace standalone {

namespace {

constexpr std::size_t SID_BYTES = 16;

/// Two lower-case digits a byte.
std::string hex(std::span<const unsigned char> bytes) {
    std::string text(bytes.size() * 2 + 1, '\0');
    sodium_bin2hex(text.data(), text.size(), bytes.data(), bytes.size());
    text.pop_back();
    return text;
}

std::string hash_sid(const std::string& sid) {
    std::array<unsigned char, crypto_hash_sha256_BYTES> hash{};
    crypto_hash_sha256(hash.data(), reinterpret_cast<const unsigned char*>(sid.data()), sid.size());
    return hex(hash);
}

long long now() {
    return static_cast<long long>(current_time_stamp());
}

}  // namespace

std::string SessionStore::open(const std::string& user, long long minutes) {
    if (sodium_init() < 0) throw std::runtime_error("no source of random numbers");
    std::array<unsigned char, SID_BYTES> random{};
    randombytes_buf(random.data(), random.size());
    std::string sid = hex(random);
    Transaction transaction(database_);
    database_.prepare("DELETE FROM session WHERE expires_ms <= ?").bind(1, now()).step();
    const long long opened = now();
    Statement insert = database_.prepare(
        "INSERT INTO session (sid_hash, user, opened_ms, expires_ms) VALUES (?, ?, ?, ?)");
    insert.bind(1, hash_sid(sid)).bind(2, user);
    insert.bind(3, opened).bind(4, opened + minutes * 60'000).step();
    transaction.commit();
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

std::optional<User> SessionStore::find(const std::string& sid) {
    Statement row = database_.prepare(
        "SELECT name, level FROM session JOIN user ON name = user "
        "WHERE sid_hash = ? AND expires_ms > ?");
    if (!row.bind(1, hash_sid(sid)).bind(2, now()).step()) return {};
    return User{row.text(0), static_cast<unsigned>(row.integer(1))};
}

}  // namespace standalone
