// Sessions of the recorder's users, in the registry.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/user_store.h"

namespace standalone {

/// One session.
struct Session {
    std::string user;
    std::optional<long long> opened_ms;  ///< since the epoch; nothing of one from before 0.2.0
    long long expires_ms = 0;
};

/// A session as whoever has its SID sees it. Times are milliseconds since the epoch.
struct OwnSession {
    User user;
    long long expires_ms = 0;  ///< when nobody uses it until then
    long long ends_ms = 0;     ///< however much it is used
};

/// How long a session that a password has opened stays without use, and how long at most.
inline constexpr long long IDLE_MINUTES = 30;
inline constexpr long long LONGEST_MINUTES = 12 * 60;

/// The open sessions. A session is known by its SID, of which only the SHA-256 is stored: who reads
/// the database cannot take a session over. Any call may throw DatabaseError.
class SessionStore {
public:
    explicit SessionStore(Database& database) : database_(database) {}

    /// Opens a session and forgets the expired ones.
    /// @param user    an existing account
    /// @param minutes until it expires
    /// @return the SID: 128 random bits as 32 lower-case hexadecimal digits
    std::string open(const std::string& user, long long minutes);

    /// Opens one that ends after IDLE_MINUTES without use, and after LONGEST_MINUTES at the latest.
    /// @return the SID; nothing when the account has another password by now, or is gone: whoever
    ///         changes a password shuts out those who are signing in with the old one, too
    std::optional<std::string> open_sliding(const CheckedUser& checked);

    /// The session of `sid`; nothing when there is none or it has expired. One read.
    std::optional<OwnSession> look(const std::string& sid);

    /// Whether use has a session end a minute later than it would, at least.
    static bool gains_by_use(const OwnSession& session);

    /// Has a session that open_sliding() opened begin its idle time anew. Writes when it gains by
    /// that, and not before; of other sessions, and of none, it changes nothing.
    /// @param session what look() has just told
    /// @return when it now expires
    long long slide(const std::string& sid, const OwnSession& session);

    /// The sessions that have not expired, by user; their SIDs are known to nobody here.
    std::vector<Session> list();

    /// @return whether there was such a session
    bool close(const std::string& sid);

private:
    std::string add(const std::string& user, long long minutes, std::optional<long long> longest);
    bool is_still(const CheckedUser& checked);

    Database& database_;
};

}  // namespace standalone
