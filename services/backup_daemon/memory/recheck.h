// Has copies be compared with their recordings once more, for whoever does not trust a server.
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/database.h"

namespace services {

/// Marks copies that are on a share as doubted (copy_memory.h), all of them or none: the next runs
/// that select them compare them with their recordings, and make anew what is not equal. A daemon
/// that runs meanwhile waits; what it records afterwards has been compared.
/// @param memory  backupd.db, for writing
/// @param task_id those that this task has made; nothing: those of all tasks, deleted ones too
/// @return how many they are
/// @throws standalone::DatabaseError
int recheck(standalone::Database& memory, const std::optional<std::string>& task_id);

}  // namespace services
