// Reads task records from the rows of their table.
#pragma once

#include <list>
#include <optional>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"

namespace standalone {

/// All tasks, by ascending identifier.
/// @throws DatabaseError
std::list<TDataBackupConfig> read_tasks(Database& database);

/// The task with that identifier.
/// @throws DatabaseError
std::optional<TDataBackupConfig> read_task(Database& database, long long number);

}  // namespace standalone
