// When a task's schedule comes due; no clock and no time zone but those handed in.
#include "platform/standalone/store/schedule.h"

namespace standalone {
namespace {

constexpr int LONGEST_INTERVAL = 24 * 366;  // hours

bool is_possible(const TDataBackupConfig& task) {
    const bool time = task.scheduleHour >= 0 && task.scheduleHour < 24 && task.scheduleMin >= 0 &&
                      task.scheduleMin < 60;
    switch (task.scheduleType) {
        case SCHEDULE_DAILY:
            return time;
        case SCHEDULE_WEEKLY:
            return time && task.scheduleWeekly >= 0 && task.scheduleWeekly <= 7;
        case SCHEDULE_HOURS:
            return time && task.scheduleEveryHours >= 1 &&
                   task.scheduleEveryHours <= LONGEST_INTERVAL;
        default:
            return false;
    }
}

/// Whether a daily or weekly schedule is due on a day.
bool is_on(const TDataBackupConfig& task, DayNumber day) {
    return task.scheduleType == SCHEDULE_DAILY || weekday_of(day) == task.scheduleWeekly % 7;
}

long long due_on_a_day(const TDataBackupConfig& task, long long now, const TimeZone& zone) {
    for (DayNumber day = local_day(now, zone);; ++day) {
        const long long due = instant_of(day, task.scheduleHour, task.scheduleMin, zone);
        if (is_on(task, day) && due > now) return due;
    }
}

/// What is left of `value` above the next smaller multiple of `by`.
long long remainder(long long value, long long by) {
    return (value % by + by) % by;
}

/// The first time behind `now` that is a whole number of intervals behind `start`. However far from
/// now `start` is, nothing overflows: it may have been read from a damaged database.
long long behind(long long start, long long interval, long long now) {
    if (start > now) return start;
    return now + interval - remainder(now % interval - start % interval, interval);
}

long long interval_of(const TDataBackupConfig& task) {
    return task.scheduleEveryHours * 3600LL;
}

/// The time behind one at which the schedule was due.
long long due_after(const TDataBackupConfig& task, long long due, long long now,
                    const TimeZone& zone) {
    if (task.scheduleType == SCHEDULE_HOURS) return behind(due, interval_of(task), now);
    return due_on_a_day(task, now, zone);
}

/// Further ahead than two runs from now: the clock has been set back by more than a period.
bool is_out_of_reach(const TDataBackupConfig& task, long long due, long long now,
                     const TimeZone& zone) {
    if (task.scheduleType == SCHEDULE_HOURS) return due > now + 2 * interval_of(task);
    return due > due_on_a_day(task, due_on_a_day(task, now, zone), zone);
}

}  // namespace

std::string schedule_rule(const TDataBackupConfig& task) {
    std::string rule;
    for (const int part : {task.scheduleType, task.scheduleWeekly % 7, task.scheduleHour,
                           task.scheduleMin, task.scheduleEveryHours})
        rule += std::to_string(part) + ' ';
    return rule;
}

std::optional<long long> first_due(const TDataBackupConfig& task, long long now,
                                   const TimeZone& zone) {
    if (!is_possible(task)) return {};
    if (task.scheduleType != SCHEDULE_HOURS) return due_on_a_day(task, now, zone);
    const long long today =
        instant_of(local_day(now, zone), task.scheduleHour, task.scheduleMin, zone);
    // Of the grid through today's hour and minute, also what lies before them.
    const long long interval = interval_of(task);
    return behind(today - ((today - now) / interval + 1) * interval, interval, now);
}

ScheduleStep look_at_schedule(const TDataBackupConfig& task,
                              const std::optional<NextRun>& remembered, long long now,
                              const TimeZone& zone) {
    if (!task.enable) return {};
    const std::string rule = schedule_rule(task);
    const auto first = first_due(task, now, zone);
    if (!first) return {};
    if (!remembered || remembered->rule != rule ||
        is_out_of_reach(task, remembered->due, now, zone))
        return {false, NextRun{rule, *first}};
    if (remembered->due > now) return {false, remembered};
    return {true, NextRun{rule, due_after(task, remembered->due, now, zone)}};
}

}  // namespace standalone
