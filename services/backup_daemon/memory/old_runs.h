// Lets go of runs that the history need not have any more, a few at a time.
#pragma once

#include <list>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"

namespace services {

/// Runs of a task that are kept however old they are.
inline constexpr int KEPT_RUNS = 200;

/// Days for which all runs are kept, those of deleted tasks, too: a history that answers questions
/// outlives its task.
inline constexpr int KEPT_DAYS = 400;

/// Rows that go at one time: whoever else waits for the database does not wait for long.
inline constexpr int PRUNED_AT_ONCE = 300;

/// Deletes runs that are neither among the newest KEPT_RUNS of a stored task nor of the last
/// KEPT_DAYS, PRUNED_AT_ONCE at most, with their failed files. What is known of a deleted task goes
/// with its last run. An open run stays. Where there is nothing, nothing is written. By a clock
/// that is more than a month ahead of the newest run none is old, until runs have gone on by it for
/// a month.
/// @param tasks all that are stored
/// @param now   seconds since the epoch
/// @return how many runs have gone
/// @throws standalone::DatabaseError
int prune_runs(standalone::Database& memory, const std::list<TDataBackupConfig>& tasks,
               long long now);

}  // namespace services
