// When tasks are overdue: after a success and without one, across changes of clocks and schedules.
#include "services/backup_daemon/when/overdue.h"

#include <gtest/gtest.h>

#include "platform/standalone/store/schedule.h"

namespace {

using namespace services;
using standalone::TaskHealth;

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;
constexpr long long NOW = 20000 * DAY;
constexpr int PERCENT = 25;

TDataBackupConfig daily() {
    TDataBackupConfig task;
    task.enable = true;
    task.scheduleType = SCHEDULE_DAILY;
    task.scheduleHour = 2;
    return task;
}

TDataBackupConfig every_hours(int hours) {
    TDataBackupConfig task = daily();
    task.scheduleType = SCHEDULE_HOURS;
    task.scheduleEveryHours = hours;
    return task;
}

TaskHealth succeeded(long long time, long long first_due = 0) {
    TaskHealth health;
    health.last_success = 1;
    health.success_time = time;
    health.first_due = first_due;
    health.rule = "rule";
    return health;
}

standalone::NextRun next(long long due) {
    return {"rule", due};
}

std::optional<long long> overdue(const TDataBackupConfig& task, const TaskHealth& known,
                                 const std::optional<standalone::NextRun>& next_run,
                                 long long now = NOW) {
    return reckon_overdue(task, known, next_run, now, PERCENT).overdue_from;
}

TEST(Overdue, TaskThatNeverSucceededIsFromItsFirstDueTimeOn) {
    const TaskHealth first = reckon_overdue(daily(), {}, next(NOW + HOUR), NOW, PERCENT);
    EXPECT_EQ(first.overdue_from, NOW + HOUR);
    const TaskHealth later = reckon_overdue(daily(), first, next(NOW + 3 * DAY), NOW + 2 * DAY, 25);
    EXPECT_EQ(later.overdue_from, NOW + HOUR) << "it does not move with the schedule";
}

std::optional<long long> late(const TDataBackupConfig& task, const TaskHealth& known,
                              const std::optional<standalone::NextRun>& next_run,
                              long long now = NOW) {
    return reckon_overdue(task, known, next_run, now, PERCENT).late_from;
}

TEST(Overdue, SuccessIsTooOldInItsTimeWhateverTurnsTheScheduleHasHad) {
    const TaskHealth known = succeeded(NOW - 3 * DAY, NOW);
    EXPECT_EQ(overdue(daily(), known, {{"other rule", NOW + DAY}}), NOW + DAY + 6 * HOUR);
    EXPECT_EQ(late(daily(), known, {{"other rule", NOW + DAY}}), NOW - 2 * DAY + 6 * HOUR);
    EXPECT_FALSE(late(daily(), {}, next(NOW + DAY))) << "there is no success";
    EXPECT_FALSE(late(daily(), known, {})) << "no schedule";
}

TEST(Overdue, SuccessOfAClockThatWasSetBackSinceIsTooOldInItsTimeToo) {
    TaskHealth known = succeeded(NOW + 100 * DAY);
    EXPECT_EQ(late(daily(), known, next(NOW + DAY)), NOW + DAY + 6 * HOUR);
    known.late_from = NOW + HOUR;
    EXPECT_EQ(late(daily(), known, next(NOW + DAY)), NOW + HOUR);
}

TEST(Overdue, AfterASuccessTheIntervalAndTheGraceTimeMustPass) {
    EXPECT_EQ(overdue(daily(), succeeded(NOW), next(NOW + DAY)), NOW + DAY + 6 * HOUR);
    TDataBackupConfig weekly = daily();
    weekly.scheduleType = SCHEDULE_WEEKLY;
    EXPECT_EQ(overdue(weekly, succeeded(NOW), next(NOW + DAY)), NOW + 7 * DAY + 42 * HOUR);
    EXPECT_EQ(overdue(every_hours(12), succeeded(NOW), next(NOW + DAY)), NOW + 15 * HOUR);
    EXPECT_EQ(overdue(every_hours(1), succeeded(NOW), next(NOW + DAY)), NOW + 3 * HOUR)
        << "two hours of grace at least";
}

TEST(Overdue, GraceTimeIsConfigured) {
    EXPECT_EQ(reckon_overdue(daily(), succeeded(NOW), next(NOW + DAY), NOW, 100).overdue_from,
              NOW + 2 * DAY);
    EXPECT_EQ(reckon_overdue(daily(), succeeded(NOW), next(NOW + DAY), NOW, 1).overdue_from,
              NOW + DAY + LEAST_GRACE);
}

TEST(Overdue, DisabledTaskAndOneWithoutAScheduleNeverAre) {
    const TaskHealth known = reckon_overdue(daily(), succeeded(NOW - 9 * DAY), next(NOW), NOW, 25);
    ASSERT_TRUE(known.overdue_from);
    EXPECT_FALSE(overdue(daily(), known, {}));
    TDataBackupConfig disabled = daily();
    disabled.enable = false;
    const TaskHealth now = reckon_overdue(disabled, known, next(NOW), NOW, PERCENT);
    EXPECT_FALSE(now.overdue_from);
    EXPECT_EQ(now.success_time, NOW - 9 * DAY) << "what it has done stays";
}

TEST(Overdue, ScheduleThatIsSwitchedOnOrChangedHasItsTurnFirst) {
    TaskHealth known = succeeded(NOW - 90 * DAY);
    known.first_due.reset();
    known.rule.clear();
    EXPECT_EQ(overdue(daily(), known, next(NOW + 5 * HOUR)), NOW + 11 * HOUR);
    known = succeeded(NOW - 5 * DAY, NOW - 50 * DAY);
    EXPECT_EQ(overdue(daily(), known, standalone::NextRun{"another", NOW + HOUR}), NOW + 7 * HOUR);
}

TEST(Overdue, ClockThatIsSetBackLeavesNobodyUnwatched) {
    TaskHealth known = succeeded(NOW + 365 * DAY);
    known.overdue_from = NOW + 366 * DAY;
    known = reckon_overdue(daily(), known, next(NOW + HOUR), NOW, PERCENT);
    EXPECT_EQ(known.overdue_from, NOW + DAY + 6 * HOUR);
    known = reckon_overdue(daily(), known, next(NOW + HOUR), NOW + 4 * HOUR, PERCENT);
    EXPECT_EQ(known.overdue_from, NOW + DAY + 6 * HOUR) << "it comes nearer";
}

TEST(Overdue, TaskThatWasNewBeforeTheClockWasSetHasItsTurnFirst) {
    const TaskHealth fresh = reckon_overdue(daily(), {}, next(2 * HOUR), 60, PERCENT);
    EXPECT_EQ(fresh.overdue_from, 2 * HOUR);
    EXPECT_EQ(overdue(daily(), fresh, next(DAY + 2 * HOUR), 3 * HOUR), 2 * HOUR) << "still 1970";
    EXPECT_EQ(overdue(daily(), fresh, next(NOW + HOUR)), NOW + HOUR);
}

TEST(Overdue, MachineThatBeginsWithoutATimeForgetsNothing) {
    const TaskHealth known = reckon_overdue(daily(), {}, next(NOW + HOUR), NOW, PERCENT);
    TaskHealth unset = reckon_overdue(daily(), known, next(2 * HOUR), 60, PERCENT);
    EXPECT_EQ(unset.overdue_from, 60 + DAY + 6 * HOUR) << "it may stay 1970";
    unset = reckon_overdue(daily(), unset, next(DAY + 2 * HOUR), 3 * HOUR, PERCENT);
    EXPECT_EQ(unset.overdue_from, 60 + DAY + 6 * HOUR);
    EXPECT_EQ(overdue(daily(), unset, next(NOW + 3 * DAY), NOW + 2 * DAY), NOW + HOUR);
}

/// The clocks of central Europe: an hour forward on 2024-03-31, back on 2024-10-27, at 01:00 UTC.
long long europe(long long instant) {
    constexpr long long FORWARD = 1711846800;
    constexpr long long BACK = 1729990800;
    return instant >= FORWARD && instant < BACK ? 2 * HOUR : HOUR;
}

/// Every run succeeds a quarter of an hour after it came due: with no grace but the least, no task
/// is overdue at any time of the year.
TEST(Overdue, ChangeOfTheClocksMakesNoPunctualTaskOverdue) {
    for (const TDataBackupConfig& task : {daily(), every_hours(1), every_hours(24)}) {
        long long now = 1704067200;
        std::optional<standalone::NextRun> next_run;
        TaskHealth health;
        for (int run = 0; run < 366; ++run) {
            const standalone::ScheduleStep step =
                standalone::look_at_schedule(task, next_run, now, europe);
            next_run = step.next;
            if (step.run) health.success_time = now + HOUR / 4;
            health = reckon_overdue(task, health, next_run, now + HOUR / 4, 1);
            if (health.success_time) {
                EXPECT_GT(*health.overdue_from, next_run->due + HOUR / 4) << now;
            }
            now = next_run->due;
        }
    }
}

}  // namespace
