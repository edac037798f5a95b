// Finds out which problems there are, from nothing but what is stored.
#pragma once

#include <functional>
#include <list>
#include <set>
#include <string>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"
#include "services/backup_daemon/tell/problem.h"

namespace services {

/// Names the share that a task copies to, as table share_room does.
using ShareOf = std::function<std::string(const TDataBackupConfig&)>;

/// A share is nearly full with less than this part of its bytes free, in percent, ...
inline constexpr long long LEAST_FREE = 5;

/// ... until it has that much, so that nobody is told again and again of one in between.
inline constexpr long long FREE_AGAIN = 6;

/// Looks at all that may be a problem: of each enabled task its newest run, whether it is overdue
/// and whether its copies differ; each share that an enabled task copies to and that tells its
/// room. Whoever disables a task knows of it, so of others there is nothing.
///
/// Whether a run failed the task's own status says, which is stored first; the history only of one
/// that waits, runs or was cancelled. Rows of runs and copies are looked up and never gone through.
/// @param tasks  all that are stored
/// @param memory the daemon's own database
/// @param full   shares that were nearly full at the look before
/// @param now    seconds since the epoch
/// @return those that are not there, too: they are over
/// @throws standalone::DatabaseError
std::vector<Problem> look_for_problems(const std::list<TDataBackupConfig>& tasks,
                                       const ShareOf& share_of, standalone::Database& memory,
                                       const std::set<std::string>& full, long long now);

}  // namespace services
