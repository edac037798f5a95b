// Creates databases and brings them up to date, one numbered step after the other.
#pragma once

#include <span>
#include <stdexcept>
#include <string>

#include "platform/standalone/store/database.h"

namespace standalone {

/// Steps of a schema: the SQL at place N takes a database from number N to N + 1. A new, empty
/// database has number 0. The number is kept in SQLite's "user_version". Steps that were ever
/// released do not change; a new schema is one step more.
using Migrations = std::span<const char* const>;

/// Steps of the configuration database.
Migrations config_migrations();

/// Steps of the registry.
Migrations registry_migrations();

/// Steps of the event database.
Migrations event_migrations();

/// How a database is made safe against power cuts (sqlite.org/pragma.html#pragma_journal_mode).
enum class Journal {
    write_ahead,  ///< readers and a writer do not wait for each other
    rollback,  ///< opened with fewer system calls, which a request that reads twice and ends feels
};

/// A database that a newer version has made. No attempt will fare better.
struct NewerDatabase : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Makes the database (mode 0600) where there is none and runs the steps it lacks, all in one
/// transaction: it is either wholly up to date or as it was.
/// @throws NewerDatabase when it is newer than the steps known here, std::runtime_error otherwise,
///         with one line for the user
void migrate(const std::string& path, Migrations steps, Journal journal = Journal::write_ahead);

/// Makes sure that a database has exactly the number that `steps` lead to.
/// @throws NewerDatabase when it is more, std::runtime_error when it is less, with one line for the
///         user
void require_current(Database& database, const std::string& path, Migrations steps);

}  // namespace standalone
