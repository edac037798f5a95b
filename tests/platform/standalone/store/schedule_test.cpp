// When schedules come due: every kind, both clock changes, missed runs, clocks that were set.
#include "platform/standalone/store/schedule.h"

#include <gtest/gtest.h>

using namespace standalone;

namespace {

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;

// 2024 in Central Europe: one hour ahead of UTC, two from 31 March to 27 October, 01:00 UTC each.
constexpr long long SPRING = 1711846800;
constexpr long long AUTUMN = 1729990800;

long long zone(long long instant) {
    return instant >= SPRING && instant < AUTUMN ? 2 * HOUR : HOUR;
}

// Days of 2024 by their number.
constexpr DayNumber MARCH_1 = 19783;
constexpr DayNumber SPRING_DAY = MARCH_1 + 30;
constexpr DayNumber AUTUMN_DAY = 20023;

long long at(DayNumber day, int hour, int minute = 0) {
    return instant_of(day, hour, minute, zone);
}

TDataBackupConfig daily(int hour, int minute = 0) {
    TDataBackupConfig task;
    task.enable = true;
    task.scheduleType = 0;
    task.scheduleHour = hour;
    task.scheduleMin = minute;
    return task;
}

TDataBackupConfig weekly(int weekday, int hour) {
    TDataBackupConfig task = daily(hour);
    task.scheduleType = 1;
    task.scheduleWeekly = weekday;
    return task;
}

TDataBackupConfig every(int hours, int hour = 0) {
    TDataBackupConfig task = daily(hour);
    task.scheduleType = 2;
    task.scheduleEveryHours = hours;
    return task;
}

/// A daemon that looks again and again; tells when it ran the task.
struct Daemon {
    TDataBackupConfig task;
    std::optional<NextRun> remembered = {};
    std::vector<long long> runs = {};

    void look(long long now) {
        const ScheduleStep step = look_at_schedule(task, remembered, now, zone);
        remembered = step.next;
        if (step.run) runs.push_back(now);
    }

    void look_every_minute(long long from, long long to) {
        for (long long now = from; now <= to; now += 60) look(now);
    }
};

TEST(Calendar, KnowsDaysAndWeekdays) {
    EXPECT_EQ(day_text(MARCH_1), "2024-03-01");
    EXPECT_EQ(weekday_of(MARCH_1), 5);
    EXPECT_EQ(weekday_of(SPRING_DAY), 0);
    EXPECT_EQ(day_text(-1), "1969-12-31");
    EXPECT_EQ(local_day(at(MARCH_1, 0) - 1, zone), MARCH_1 - 1);
    EXPECT_EQ(local_day(at(MARCH_1, 0), zone), MARCH_1);
}

TEST(Calendar, SkippedTimeIsTheInstantOfTheChange) {
    EXPECT_EQ(at(SPRING_DAY, 2, 30), SPRING);
    EXPECT_EQ(at(SPRING_DAY, 2, 0), SPRING);
    EXPECT_EQ(at(SPRING_DAY, 1, 59), SPRING - 60);
    EXPECT_EQ(at(SPRING_DAY, 3, 0), SPRING);
    EXPECT_EQ(at(SPRING_DAY, 4, 0), SPRING + HOUR);
}

TEST(Calendar, TimeThatComesTwiceIsTheFirstOfThem) {
    EXPECT_EQ(at(AUTUMN_DAY, 2, 30), AUTUMN - 30 * 60);
    EXPECT_EQ(at(AUTUMN_DAY, 3, 0), AUTUMN + HOUR);
}

TEST(Schedule, DailyRunsOnceADayAtItsTime) {
    Daemon daemon{daily(3, 15)};
    daemon.look_every_minute(at(MARCH_1, 12), at(MARCH_1 + 3, 12));
    EXPECT_EQ(daemon.runs, (std::vector{at(MARCH_1 + 1, 3, 15), at(MARCH_1 + 2, 3, 15),
                                        at(MARCH_1 + 3, 3, 15)}));
}

TEST(Schedule, DailyRunsOnceOnTheDayThatSkipsItsTime) {
    Daemon daemon{daily(2, 30)};
    daemon.look_every_minute(at(SPRING_DAY - 1, 12), at(SPRING_DAY + 1, 12));
    EXPECT_EQ(daemon.runs, (std::vector{SPRING, at(SPRING_DAY + 1, 2, 30)}));
}

TEST(Schedule, DailyRunsOnceOnTheDayThatShowsItsTimeTwice) {
    Daemon daemon{daily(2, 30)};
    daemon.look_every_minute(at(AUTUMN_DAY - 1, 12), at(AUTUMN_DAY + 1, 12));
    EXPECT_EQ(daemon.runs, (std::vector{AUTUMN - 30 * 60, at(AUTUMN_DAY + 1, 2, 30)}));
}

TEST(Schedule, WeeklyRunsOnItsDayAndZeroAndSevenAreSunday) {
    for (const int sunday : {0, 7}) {
        Daemon daemon{weekly(sunday, 4)};
        daemon.look_every_minute(at(MARCH_1, 0), at(MARCH_1 + 14, 0));
        EXPECT_EQ(daemon.runs, (std::vector{at(MARCH_1 + 2, 4), at(MARCH_1 + 9, 4)}));
    }
    Daemon friday{weekly(5, 4)};
    friday.look_every_minute(at(MARCH_1, 0), at(MARCH_1 + 1, 0));
    EXPECT_EQ(friday.runs, (std::vector{at(MARCH_1, 4)}));
}

TEST(Schedule, WeeklyGoesAcrossBothChanges) {
    Daemon daemon{weekly(0, 2)};
    daemon.look_every_minute(at(SPRING_DAY, 0), at(SPRING_DAY + 7, 12));
    EXPECT_EQ(daemon.runs, (std::vector{SPRING, at(SPRING_DAY + 7, 2)}));
    Daemon autumn{weekly(0, 2)};
    autumn.look_every_minute(at(AUTUMN_DAY, 0), at(AUTUMN_DAY, 12));
    EXPECT_EQ(autumn.runs, (std::vector{AUTUMN - HOUR}));
}

TEST(Schedule, EveryHoursMeansHoursApartAlsoAcrossAChange) {
    Daemon daemon{every(6, 1)};
    daemon.look_every_minute(at(MARCH_1, 2), at(MARCH_1, 20));
    EXPECT_EQ(daemon.runs, (std::vector{at(MARCH_1, 7), at(MARCH_1, 13), at(MARCH_1, 19)}));
    Daemon spring{every(2)};
    spring.look_every_minute(SPRING - 90 * 60, SPRING + 4 * HOUR);
    EXPECT_EQ(spring.runs, (std::vector{SPRING, SPRING + 2 * HOUR, SPRING + 4 * HOUR}));
}

TEST(Schedule, EveryHoursAlsoCountsBackFromItsTimeOfDay) {
    EXPECT_EQ(first_due(every(6, 22), at(MARCH_1, 1), zone), at(MARCH_1, 4));
    EXPECT_EQ(first_due(every(24, 22), at(MARCH_1, 1), zone), at(MARCH_1, 22));
    EXPECT_EQ(first_due(every(5, 0), at(MARCH_1, 23), zone), at(MARCH_1, 23) + 2 * HOUR);
}

TEST(Schedule, MissedRunsAreMadeUpOnceAfterTheMachineWasOff) {
    for (const TDataBackupConfig& task : {daily(3), every(1), weekly(6, 3)}) {
        Daemon daemon{task};
        daemon.look(at(MARCH_1, 12));
        const long long back = at(MARCH_1 + 16, 12, 7);
        daemon.look_every_minute(back, back + 30 * 60);
        EXPECT_EQ(daemon.runs, (std::vector{back}));
    }
}

TEST(Schedule, ClockSetBackDoesNotRunTwice) {
    Daemon daemon{daily(3)};
    daemon.look(at(MARCH_1, 0));
    daemon.look(at(MARCH_1, 3));
    ASSERT_EQ(daemon.runs.size(), 1U);
    daemon.look_every_minute(at(MARCH_1, 2), at(MARCH_1 + 1, 4));
    EXPECT_EQ(daemon.runs, (std::vector{at(MARCH_1, 3), at(MARCH_1 + 1, 3)}));
    Daemon hours{every(1)};
    hours.look(at(MARCH_1, 4, 30));
    hours.look(at(MARCH_1, 5));
    hours.look_every_minute(at(MARCH_1, 4, 30), at(MARCH_1, 6, 30));
    EXPECT_EQ(hours.runs, (std::vector{at(MARCH_1, 5), at(MARCH_1, 6)}));
}

TEST(Schedule, ClockThatWasYearsAheadDoesNotSilenceTheSchedule) {
    for (const TDataBackupConfig& task : {daily(3), every(4), weekly(5, 3)}) {
        Daemon daemon{task};
        daemon.look(at(MARCH_1, 0) + 900 * DAY);
        daemon.look_every_minute(at(MARCH_1, 2), at(MARCH_1, 4, 30));
        EXPECT_EQ(daemon.runs.size(), 1U);
    }
}

TEST(Schedule, ClockSetForwardRunsOnce) {
    Daemon daemon{daily(3)};
    daemon.look(at(MARCH_1, 0));
    daemon.look_every_minute(at(MARCH_1 + 5, 12), at(MARCH_1 + 5, 13));
    EXPECT_EQ(daemon.runs, (std::vector{at(MARCH_1 + 5, 12)}));
}

TEST(Schedule, DisabledTaskDoesNotRunAndMakesNothingUp) {
    Daemon daemon{daily(3)};
    daemon.look(at(MARCH_1, 0));
    daemon.task.enable = false;
    daemon.look(at(MARCH_1, 5));
    EXPECT_FALSE(daemon.remembered);
    daemon.task.enable = true;
    daemon.look(at(MARCH_1, 6));
    EXPECT_EQ(daemon.runs, std::vector<long long>{});
}

TEST(Schedule, ChangedScheduleBeginsAnew) {
    Daemon daemon{daily(3)};
    daemon.look(at(MARCH_1, 2));
    daemon.task = daily(1);
    daemon.look(at(MARCH_1, 4));
    EXPECT_EQ(daemon.runs, std::vector<long long>{});
    EXPECT_EQ(daemon.remembered->due, at(MARCH_1 + 1, 1));
}

TEST(Schedule, ImpossibleOnesNeverComeDue) {
    TDataBackupConfig unknown = daily(3);
    unknown.scheduleType = 9;
    for (const TDataBackupConfig& task : {daily(24), daily(-1), daily(3, 60), weekly(8, 1),
                                          weekly(-1, 1), every(0), every(-4), unknown})
        EXPECT_FALSE(first_due(task, at(MARCH_1, 0), zone));
}

}  // namespace
