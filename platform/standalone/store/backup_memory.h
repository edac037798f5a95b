// Opens the backup daemon's own database to read it.
#pragma once

#include "platform/standalone/store/database.h"

namespace standalone {

/// The newest schema of that database.
int known_memory_schema();

/// @throws std::runtime_error with one line for the user when the daemon has never made its
///         database, or it is of another schema
Database open_backup_memory();

}  // namespace standalone
