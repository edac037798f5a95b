// When a task is overdue; no clock, no store and no setting but what is handed in.
#include "services/backup_daemon/when/overdue.h"

#include <algorithm>

#include "services/last_look.h"

namespace services {
namespace {

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;

// The beginning of 2024, when none of this was written.
constexpr long long SET_CLOCKS_TELL_MORE = 1704067200;

/// Seconds between two runs of the schedule, but for the hour by which clocks are changed.
long long usual_interval(const TDataBackupConfig& task) {
    switch (task.scheduleType) {
        case SCHEDULE_WEEKLY:
            return 7 * DAY;
        case SCHEDULE_HOURS:
            return task.scheduleEveryHours * HOUR;
        default:
            return DAY;
    }
}

/// How late a task may be.
long long grace_of(const TDataBackupConfig& task, int percent) {
    return std::max(usual_interval(task) * percent / 100, LEAST_GRACE);
}

/// First time that the schedule came, or comes, due. A clock that was never set tells a year that
/// has long passed: what came due by it says nothing once the clock is set, and takes the place of
/// nothing that was known before the machine forgot the time.
long long first_due_of(const standalone::TaskHealth& known, const standalone::NextRun& next) {
    const bool is_new = !known.first_due || known.rule != next.rule;
    const bool is_set = next.due >= SET_CLOCKS_TELL_MORE;
    const bool was_set = known.first_due >= SET_CLOCKS_TELL_MORE;
    if (is_new || (is_set && !was_set && !known.success_time)) return next.due;
    return is_set == was_set ? std::min(*known.first_due, next.due) : *known.first_due;
}

/// What is later than it can be is of a clock that was set back since: it says nothing of the time
/// that has passed, and what was reckoned then is kept, as far as it can be right.
long long reckoned_before(const std::optional<long long>& moment, long long latest) {
    return std::min(moment.value_or(latest), latest);
}

std::optional<long long> late_from(const standalone::TaskHealth& known, long long patience,
                                   long long now) {
    if (!known.success_time) return {};
    const long long latest = now + patience;
    return *known.success_time > now ? reckoned_before(known.late_from, latest)
                                     : *known.success_time + patience;
}

/// @param patience the interval and the grace time
long long deadline(const standalone::TaskHealth& known, long long patience, long long grace,
                   long long now) {
    const long long latest = now + patience;
    const bool is_ahead =
        known.success_time ? *known.success_time > now : *known.first_due > latest;
    if (is_ahead) return reckoned_before(known.overdue_from, latest);
    if (!known.success_time) return *known.first_due;
    return std::max(*known.success_time + patience, *known.first_due + grace);
}

}  // namespace

standalone::TaskHealth reckon_overdue(const TDataBackupConfig& task, standalone::TaskHealth known,
                                      const std::optional<standalone::NextRun>& next, long long now,
                                      int percent) {
    if (!task.enable || !next) {
        known.overdue_from.reset();
        known.late_from.reset();
        known.first_due.reset();
        known.rule.clear();
        return known;
    }
    known.first_due = first_due_of(known, *next);
    known.rule = next->rule;
    const long long grace = grace_of(task, percent);
    const long long patience = usual_interval(task) + grace;
    known.overdue_from = deadline(known, patience, grace, now);
    known.late_from = late_from(known, patience, now);
    return known;
}

long long reckoned_until(const TDataBackupConfig& task, const standalone::TaskHealth& reckoned,
                         long long now, int percent) {
    if (!reckoned.first_due) return NEVER;
    const long long patience = usual_interval(task) + grace_of(task, percent);
    const long long believed = reckoned.success_time.value_or(*reckoned.first_due - patience);
    return believed > now ? believed : NEVER;
}

}  // namespace services
