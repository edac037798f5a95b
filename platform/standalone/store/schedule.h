// When a task's schedule comes due; no clock and no time zone but those handed in.
#pragma once

#include <optional>
#include <string>

#include "backup/task_record.h"
#include "platform/standalone/store/calendar.h"

namespace standalone {

/// When a task's schedule comes due.
struct NextRun {
    std::string rule;   ///< the schedule that the time was reckoned with
    long long due = 0;  ///< seconds since the epoch

    bool operator==(const NextRun&) const = default;
};

/// A schedule as a text that changes exactly when the schedule does.
std::string schedule_rule(const TDataBackupConfig& task);

/// The first time the schedule comes due after `now`; nothing for a schedule that never does (an
/// hour of 25, every 0 hours).
std::optional<long long> first_due(const TDataBackupConfig& task, long long now,
                                   const TimeZone& zone);

/// What is to be done at a moment.
struct ScheduleStep {
    bool run = false;             ///< now
    std::optional<NextRun> next;  ///< what to remember; nothing: forget
};

/// Looks at a task now, given what was remembered of it. However many runs were missed, one makes
/// up for them. A clock that was set back does not bring a run again, unless it went back by more
/// than a whole period: then the schedule begins anew.
ScheduleStep look_at_schedule(const TDataBackupConfig& task,
                              const std::optional<NextRun>& remembered, long long now,
                              const TimeZone& zone);

}  // namespace standalone
