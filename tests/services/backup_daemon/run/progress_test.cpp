// A run's figures, and its patience with a lost connection.
#include "services/backup_daemon/run/progress.h"

#include <gtest/gtest.h>

#include "services/backup_daemon/run/retry_pause.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

TEST(Progress, PercentHasOneDecimalAndIsNeverTooGood) {
    EXPECT_EQ(percent_of(0, 100), 0);
    EXPECT_EQ(percent_of(1, 3), 33.3);
    EXPECT_EQ(percent_of(9'999'999, 10'000'000), 99.9);
    EXPECT_EQ(percent_of(10, 10), 100);
    EXPECT_EQ(percent_of(0, 0), 0);
    EXPECT_EQ(percent_of(5, 0), 0);
}

TEST(Progress, PercentIsRoundedDownAtEveryBorder) {
    EXPECT_EQ(percent_of(1, 1001), 0);
    EXPECT_EQ(percent_of(1, 1000), 0.1);
    EXPECT_EQ(percent_of(199, 10'000), 1.9);
    EXPECT_EQ(percent_of(998, 1000), 99.8);
    EXPECT_EQ(percent_of(9989, 10'000), 99.8);
    EXPECT_EQ(percent_of(9999, 10'000), 99.9);
    EXPECT_EQ(percent_of((1LL << 50) - 1, 1LL << 50), 99.9);
    EXPECT_EQ(percent_of(11, 10), 100);
    EXPECT_EQ(percent_of(-1, 10), 0);
    EXPECT_EQ(percent_of(1, -10), 0);
}

TEST(Progress, RateIsThatOfTheLastFiveSeconds) {
    RateMeter meter(5s);
    EXPECT_EQ(meter.rate(), 0);
    meter.note(1000ms, 0);
    EXPECT_EQ(meter.rate(), 0);
    meter.note(2000ms, 500);
    EXPECT_EQ(meter.rate(), 500);
    for (int second = 3; second <= 12; ++second) meter.note(second * 1000ms, 500);
    EXPECT_EQ(meter.rate(), 0);
    meter.note(13000ms, 1500);
    EXPECT_EQ(meter.rate(), 200);
}

TEST(Progress, NoteOfExactlyFiveSecondsAgoCounts) {
    RateMeter meter(5s);
    meter.note(0ms, 0);
    meter.note(1000ms, 100);
    meter.note(5000ms, 500);
    EXPECT_EQ(meter.rate(), 100);
    meter.note(5999ms, 600);
    EXPECT_NEAR(meter.rate(), 100.0, 0.1);
    meter.note(6000ms, 1100);
    EXPECT_EQ(meter.rate(), 200);
    meter.note(10'000ms, 1500);
    EXPECT_EQ(meter.rate(), 200);
}

TEST(Progress, RateOverALongGapIsThatOfTheGap) {
    RateMeter meter(5s);
    meter.note(1000ms, 0);
    meter.note(61'000ms, 600);
    EXPECT_EQ(meter.rate(), 10);
}

TEST(Progress, NotesOfOneMomentAreNoSpeed) {
    RateMeter meter(5s);
    meter.note(1000ms, 0);
    meter.note(1000ms, 600);
    EXPECT_EQ(meter.rate(), 0);
}

TEST(Progress, TimeLeftIsUnknownWhileNothingMoves) {
    EXPECT_EQ(seconds_left(1000, 0), std::nullopt);
    EXPECT_EQ(seconds_left(1000, 300), 4);
    EXPECT_EQ(seconds_left(900, 300), 3);
    EXPECT_EQ(seconds_left(0, 0), 0);
    EXPECT_EQ(seconds_left(-5, 100), 0);
    EXPECT_EQ(seconds_left(7, 1), 7);
    EXPECT_EQ(seconds_left(7, 0.99), std::nullopt);
}

TEST(RetryPause, DoublesUpToAMinute) {
    RetryPause retry(0s);
    std::vector<int> pauses;
    for (int loss = 0; loss < 8; ++loss)
        pauses.push_back(static_cast<int>(retry.lost(1s)->count()));
    EXPECT_EQ(pauses, (std::vector{1, 2, 4, 8, 16, 32, 60, 60}));
}

TEST(RetryPause, ProgressBringsTheShortPausesBack) {
    RetryPause retry(0s);
    for (int loss = 0; loss < 5; ++loss) retry.lost(1s);
    retry.progressed(10s);
    EXPECT_EQ(retry.lost(11s), 1s);
    EXPECT_EQ(retry.lost(11s), 2s);
}

TEST(RetryPause, GivesUpAfterThirtyMinutesWithoutProgress) {
    RetryPause retry(100s);
    EXPECT_TRUE(retry.lost(100s + 29min + 59s));
    EXPECT_FALSE(retry.lost(100s + 30min));
    retry.progressed(100s + 30min);
    EXPECT_TRUE(retry.lost(100s + 59min));
}

}  // namespace
