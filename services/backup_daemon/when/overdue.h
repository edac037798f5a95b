// When a task is overdue; no clock, no store and no setting but what is handed in.
#pragma once

#include <optional>

#include "backup/task_record.h"
#include "platform/standalone/store/run_record.h"
#include "services/backup_daemon/memory/schedule_store.h"

namespace services {

/// How much later than its schedule's interval after its last success a task may succeed again: so
/// many percent of the interval, LEAST_GRACE seconds at least. That is more than clocks are ever
/// changed by for summer or winter, so no change makes a task overdue.
inline constexpr long long LEAST_GRACE = 2 * 3600;

/// Reckons anew from when on a task is overdue:
/// - one that is disabled, or has no schedule that ever comes due, never is;
/// - one that has never succeeded is from the first time on that its schedule came due;
/// - any other is when its interval and the grace time have passed since its last success, but not
///   before the grace time has passed since the schedule came due for the first time: a schedule
///   that was changed or switched on has had no turn yet.
/// From when on its last success is too old, whatever turns the schedule has had since, is reckoned
/// beside that: nobody need look after such a task, and nobody may call it safe.
/// A clock that is set back leaves nobody unwatched for longer than an interval and the grace time;
/// one that was not set yet (1970) makes no task overdue since then when it is.
/// @param known   what was reckoned before
/// @param next    when the schedule comes due next; nothing when it never does
/// @param percent of the interval
standalone::TaskHealth reckon_overdue(const TDataBackupConfig& task, standalone::TaskHealth known,
                                      const std::optional<standalone::NextRun>& next, long long now,
                                      int percent);

/// When time alone makes reckon_overdue() tell something else: only what is of a clock that was
/// ahead comes to be believed some day.
/// @param reckoned what it has told now
/// @return later than now, or NEVER
long long reckoned_until(const TDataBackupConfig& task, const standalone::TaskHealth& reckoned,
                         long long now, int percent);

}  // namespace services
