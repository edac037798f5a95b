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

TEST(Progress, RateIsThatOfTheLastFiveSeconds) {
    RateMeter meter;
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

TEST(Progress, TimeLeftIsUnknownWhileNothingMoves) {
    EXPECT_EQ(seconds_left(1000, 0), std::nullopt);
    EXPECT_EQ(seconds_left(1000, 300), 4);
    EXPECT_EQ(seconds_left(0, 0), 0);
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
}

TEST(RetryPause, GivesUpAfterThirtyMinutesWithoutProgress) {
    RetryPause retry(100s);
    EXPECT_TRUE(retry.lost(100s + 29min + 59s));
    EXPECT_FALSE(retry.lost(100s + 30min));
    retry.progressed(100s + 30min);
    EXPECT_TRUE(retry.lost(100s + 59min));
}

}  // namespace
