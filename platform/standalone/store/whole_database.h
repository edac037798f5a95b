// Databases as wholes: copied while others use them, checked, held alone.
#pragma once

#include <memory>
#include <string>

#include "platform/standalone/store/database.h"

namespace standalone {

/// Copies a database as it is at one moment (sqlite.org/backup.html). Others may read and write it
/// meanwhile; one with a rollback journal cannot be written until the copy is done.
/// @param to a file that does not exist yet; it gets mode 0600 and is on disk when this returns
/// @throws std::runtime_error with one line for the user
void copy_database(const std::string& from, const std::string& to);

/// What a look at a whole database has found.
struct DatabaseHealth {
    long long schema = 0;  ///< its number (schema.h); 0 when it cannot be read
    std::string problem;   ///< the first thing that is wrong with it; "" when it is sound
};

/// Reads the whole database and compares what depends on one another (PRAGMA integrity_check).
DatabaseHealth check_database(const std::string& path);

/// Keeps all other connections from a database, whoever they belong to, as long as it lives. Its
/// files may be renamed meanwhile.
class LoneHold {
public:
    /// Nothing when others use it; with a write-ahead log, when others are connected to it.
    /// @throws DatabaseError when it cannot be held for another reason, such as being damaged
    static std::unique_ptr<LoneHold> take(const std::string& path);

private:
    explicit LoneHold(const std::string& path);

    Database database_;
};

}  // namespace standalone
