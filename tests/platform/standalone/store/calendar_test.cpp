// Local days and times: negative times, days that clocks change on, hours that come twice or never.
#include "platform/standalone/store/calendar.h"

#include <gtest/gtest.h>

namespace {

using namespace standalone;

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;

// 2024-03-31 01:00 UTC and 2024-10-27 01:00 UTC: clocks go from 02:00 to 03:00, and back again.
constexpr long long SPRING = 1711846800;
constexpr long long AUTUMN = 1729990800;
constexpr DayNumber SPRING_DAY = SPRING / DAY;
constexpr DayNumber AUTUMN_DAY = AUTUMN / DAY;

long long berlin(long long instant) {
    return instant >= SPRING && instant < AUTUMN ? 2 * HOUR : HOUR;
}

long long utc(long long) {
    return 0;
}

long long west(long long) {
    return -5 * HOUR;
}

TEST(LocalDay, BeginsAtLocalMidnight) {
    EXPECT_EQ(local_day(0, utc), 0);
    EXPECT_EQ(local_day(DAY - 1, utc), 0);
    EXPECT_EQ(local_day(DAY, utc), 1);
    EXPECT_EQ(local_day(5 * HOUR - 1, west), -1);
    EXPECT_EQ(local_day(5 * HOUR, west), 0);
    EXPECT_EQ(local_day(DAY - HOUR, berlin), 1);
}

TEST(DayText, IsReadBack) {
    for (const DayNumber day : {-800'000LL, -1LL, 0LL, 59LL, 60LL, 19'782LL, 2'932'896LL})
        EXPECT_EQ(day_number(day_text(day)), day);
    EXPECT_EQ(day_number("1970-01-02"), 1);
}

TEST(LocalDay, CountsBackFromTheEpoch) {
    EXPECT_EQ(local_day(-1, utc), -1);
    EXPECT_EQ(local_day(-DAY, utc), -1);
    EXPECT_EQ(local_day(-DAY - 1, utc), -2);
}

TEST(Weekday, CountsFromSunday) {
    EXPECT_EQ(weekday_of(0), 4);  // 1970-01-01 was a Thursday
    EXPECT_EQ(weekday_of(3), 0);
    EXPECT_EQ(weekday_of(-4), 0);
    EXPECT_EQ(weekday_of(SPRING_DAY), 0);
}

TEST(DayText, HasFourAndTwoAndTwoDigits) {
    EXPECT_EQ(day_text(0), "1970-01-01");
    EXPECT_EQ(day_text(-1), "1969-12-31");
    EXPECT_EQ(day_text(SPRING_DAY), "2024-03-31");
    EXPECT_EQ(day_text(19782), "2024-02-29");
}

TEST(InstantOf, IsWhatClocksShow) {
    EXPECT_EQ(instant_of(0, 0, 0, utc), 0);
    EXPECT_EQ(instant_of(1, 13, 45, utc), DAY + 13 * HOUR + 45 * 60);
    EXPECT_EQ(instant_of(0, 19, 0, west), DAY);
    EXPECT_EQ(instant_of(SPRING_DAY, 1, 59, berlin), SPRING - 60);
    EXPECT_EQ(instant_of(SPRING_DAY, 3, 0, berlin), SPRING);
    EXPECT_EQ(instant_of(SPRING_DAY, 12, 0, berlin), SPRING_DAY * DAY + 10 * HOUR);
    EXPECT_EQ(instant_of(AUTUMN_DAY, 12, 0, berlin), AUTUMN_DAY * DAY + 11 * HOUR);
}

TEST(InstantOf, IsTheChangeForATimeThatClocksSkip) {
    EXPECT_EQ(instant_of(SPRING_DAY, 2, 0, berlin), SPRING);
    EXPECT_EQ(instant_of(SPRING_DAY, 2, 30, berlin), SPRING);
    EXPECT_EQ(instant_of(SPRING_DAY, 2, 59, berlin), SPRING);
}

TEST(InstantOf, IsTheFirstOfTwo) {
    EXPECT_EQ(instant_of(AUTUMN_DAY, 2, 0, berlin), AUTUMN - HOUR);
    EXPECT_EQ(instant_of(AUTUMN_DAY, 2, 30, berlin), AUTUMN - HOUR / 2);
    EXPECT_EQ(instant_of(AUTUMN_DAY, 3, 0, berlin), AUTUMN + HOUR);
}

TEST(MachineZone, IsTheMachinesAtThatMoment) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    for (const long long instant : {0LL, SPRING - 1, SPRING, AUTUMN - 1, AUTUMN})
        EXPECT_EQ(machine_zone(instant), berlin(instant)) << instant;
    unsetenv("TZ");
    tzset();
}

}  // namespace
