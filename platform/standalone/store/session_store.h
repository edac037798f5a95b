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

    /// The sessions that have not expired, by user; their SIDs are known to nobody here.
    std::vector<Session> list();

    /// @return whether there was such a session
    bool close(const std::string& sid);

    /// Whose session `sid` is; nothing when there is none or it has expired. One read.
    std::optional<User> find(const std::string& sid);

private:
    Database& database_;
};

}  // namespace standalone
