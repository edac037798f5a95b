// The small helpers where the stand-alone recorder decides by itself: clock, zone, empty texts.
#include "platform/utilities.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

class Zone : public ::testing::Test {
protected:
    ~Zone() override {
        unsetenv("TZ");
        tzset();
    }

    static long long shifted(const char* zone, long long milliseconds) {
        setenv("TZ", zone, 1);  // and no tzset(): the call notices by itself
        return conv_to_local_time(milliseconds) - milliseconds;
    }
};

constexpr long long HOUR = 3600 * 1000;
constexpr char BERLIN[] = "CET-1CEST,M3.5.0,M10.5.0/3";

TEST_F(Zone, ShiftsByTheOffsetOfThatMoment) {
    EXPECT_EQ(shifted("UTC0", 1709297110123), 0);
    EXPECT_EQ(shifted(BERLIN, 1709297110123), HOUR);
    EXPECT_EQ(shifted(BERLIN, 1719835510123), 2 * HOUR);
    EXPECT_EQ(shifted("XST3:30", 1709297110123), -3 * HOUR - HOUR / 2);
}

TEST_F(Zone, ChangesWithTheClocksToTheMillisecond) {
    constexpr long long CHANGE = 1711846800000;  // 2024-03-31 01:00 UTC
    EXPECT_EQ(shifted(BERLIN, CHANGE - 1), HOUR);
    EXPECT_EQ(shifted(BERLIN, CHANGE), 2 * HOUR);
}

TEST_F(Zone, ShiftsTimesBeforeTheEpoch) {
    EXPECT_EQ(shifted(BERLIN, -1), HOUR);
    constexpr char SUMMER_BEGINS_WITH_THE_YEAR[] = "AAA0BBB,J1/0,J200/0";
    EXPECT_EQ(shifted(SUMMER_BEGINS_WITH_THE_YEAR, -1), 0);
    EXPECT_EQ(shifted(SUMMER_BEGINS_WITH_THE_YEAR, 0), HOUR);
}

/// std::time() may be a tick behind: in the first milliseconds of a second it tells the one before.
unsigned long long real_time_ms() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    return static_cast<unsigned long long>(time.tv_sec) * 1000 +
           static_cast<unsigned long long>(time.tv_nsec) / 1'000'000;
}

TEST(CurrentTimeStamp, CountsMillisecondsSinceTheEpoch) {
    const auto before = real_time_ms();
    const auto now = current_time_stamp();
    const auto after = real_time_ms();
    EXPECT_GE(now, before);
    EXPECT_LE(now, after);
}

TEST(ForbiddenCharacters, AreNotInATextThatIsNotThere) {
    EXPECT_EQ(check_black_chrset(nullptr, "abc"), 0);
    EXPECT_EQ(check_black_chrset("abc", ""), 0);
    EXPECT_NE(check_black_chrset("xyzc", "abc"), 0);
}

}  // namespace
