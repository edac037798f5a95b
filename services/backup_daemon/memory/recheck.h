// Has copies be compared with their recordings once more, for whoever does not trust a server.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/standalone/store/database.h"

namespace services {

/// Copies that recheck() looks at in one transaction: some milliseconds.
inline constexpr int RECHECKED_AT_ONCE = 1000;

/// Marks copies that are on a share as doubted (copy_memory.h): the next runs that select them
/// compare them with their recordings, and make anew what is not equal. A daemon may run and write
/// meanwhile. When this is cut off, some are doubted and others not; it may be called again.
/// @param memory  backupd.db, for writing
/// @param task_id those that this task has made; nothing: those of all tasks, deleted ones too
/// @param rest    called after each RECHECKED_AT_ONCE copies, when the database is free for others;
///                to return once they have had time to write
/// @return how many they are
/// @throws standalone::DatabaseError
int recheck(standalone::Database& memory, const std::optional<std::string>& task_id,
            const std::function<void()>& rest);

}  // namespace services
