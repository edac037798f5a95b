// A run's figures: what counts as planned, done, failed and moved, and what people see of it.
#include "services/backup_daemon/run/run_tally.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/hand_clock.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

class RunTallyTest : public testing::Test {
protected:
    RunFigures figures() const { return tally.figures(""); }

    /// "1 done, 0 failed, 2 left; 100 of 300 bytes, 33.3 %"
    std::string text() const {
        const RunFigures now = figures();
        const auto tenths = static_cast<long long>(now.percent * 10 + 0.5);
        return std::to_string(now.files_done) + " done, " + std::to_string(now.files_failed) +
               " failed, " + std::to_string(now.files_left) + " left; " +
               std::to_string(now.bytes_done) + " of " + std::to_string(now.bytes_planned) +
               " bytes, " + std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " %";
    }

    /// A planned file of 100 bytes.
    static FileCount file() { return {.planned = 100}; }

    HandClock clock;
    RunTally tally{clock};
};

TEST_F(RunTallyTest, BeginsWithNothing) {
    EXPECT_EQ(text(), "0 done, 0 failed, 0 left; 0 of 0 bytes, 0.0 %");
    EXPECT_EQ(tally.failure(), "");
    EXPECT_FALSE(tally.take_progress());
    EXPECT_EQ(figures().rate, 0);
}

TEST_F(RunTallyTest, PlannedFilesAreLeftUntilTheyAreDoneOrFailed) {
    FileCount one = file();
    tally.plan(3, 300);
    EXPECT_EQ(text(), "0 done, 0 failed, 3 left; 0 of 300 bytes, 0.0 %");
    tally.finished(one, 100);
    EXPECT_EQ(text(), "1 done, 0 failed, 2 left; 100 of 300 bytes, 33.3 %");
    tally.gave_up(file(), "it is gone");
    EXPECT_EQ(text(), "1 done, 1 failed, 1 left; 100 of 200 bytes, 50.0 %");
}

TEST_F(RunTallyTest, DayThatIsCountedAgainTakesItsFilesBack) {
    tally.plan(5, 500);
    tally.plan(-2, -300);
    EXPECT_EQ(text(), "0 done, 0 failed, 3 left; 0 of 200 bytes, 0.0 %");
}

TEST_F(RunTallyTest, FailedFileTakesPlannedAndDoneBytesAlong) {
    FileCount one = file();
    FileCount two = file();
    tally.plan(2, 200);
    tally.reached(one, 0);
    tally.reached(one, 70);
    tally.finished(two, 100);
    tally.gave_up(one, "it is gone");
    EXPECT_EQ(text(), "1 done, 1 failed, 0 left; 100 of 100 bytes, 99.9 %");
}

TEST_F(RunTallyTest, FileThatGrewCountsWithWhatItHas) {
    FileCount one = file();
    tally.plan(2, 200);
    tally.reached(one, 0);
    tally.reached(one, 150);
    EXPECT_EQ(text(), "0 done, 0 failed, 2 left; 150 of 200 bytes, 75.0 %");
    tally.finished(one, 180);
    EXPECT_EQ(text(), "1 done, 0 failed, 1 left; 180 of 280 bytes, 75.0 %");
}

TEST_F(RunTallyTest, FileThatShrankCountsWithWhatItHas) {
    FileCount one = file();
    tally.plan(2, 200);
    tally.finished(one, 20);
    EXPECT_EQ(text(), "1 done, 0 failed, 1 left; 20 of 120 bytes, 16.6 %");
}

TEST_F(RunTallyTest, FileThatOutgrowsThePlanIsNotAllOfIt) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.reached(one, 0);
    tally.reached(one, 500);
    EXPECT_EQ(text(), "0 done, 0 failed, 1 left; 500 of 100 bytes, 99.9 %");
    EXPECT_EQ(figures().seconds_left, 0);
    tally.gave_up(one, "it is gone");
    EXPECT_EQ(text(), "0 done, 1 failed, 0 left; 0 of 0 bytes, 99.9 %");
}

TEST_F(RunTallyTest, PercentIsAHundredOnlyWhenNothingMoreWillBePlanned) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.finished(one, 100);
    EXPECT_EQ(figures().percent, 99.9);
    tally.all_planned();
    EXPECT_EQ(figures().percent, 100);
}

TEST_F(RunTallyTest, PercentIsNoHundredWhileAByteIsLeft) {
    FileCount one = {.planned = 1'000'000};
    tally.plan(1, 1'000'000);
    tally.all_planned();
    tally.reached(one, 999'999);
    EXPECT_EQ(figures().percent, 99.9);
    tally.reached(one, 1'000'000);
    EXPECT_EQ(figures().percent, 100);
}

TEST_F(RunTallyTest, PercentOfNothingIsZeroAlsoInTheEnd) {
    tally.all_planned();
    EXPECT_EQ(figures().percent, 0);
}

TEST_F(RunTallyTest, PercentStaysWhenMoreComesToLight) {
    FileCount one = file();
    tally.plan(2, 200);
    tally.finished(one, 100);
    tally.plan(1, 800);
    EXPECT_EQ(text(), "1 done, 0 failed, 2 left; 100 of 1000 bytes, 50.0 %");
    FileCount two = {.planned = 800};
    tally.finished(two, 800);
    EXPECT_EQ(text(), "2 done, 0 failed, 1 left; 900 of 1000 bytes, 90.0 %");
}

TEST_F(RunTallyTest, PercentStaysWhenBytesHaveToBeSentAgain) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.reached(one, 0);
    tally.reached(one, 60);
    tally.reached(one, 0);
    EXPECT_EQ(text(), "0 done, 0 failed, 1 left; 0 of 100 bytes, 60.0 %");
}

TEST_F(RunTallyTest, WhatAnEarlierAttemptLeftIsDoneButWasNotMoved) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.note_speed();
    tally.reached(one, 60);
    EXPECT_EQ(text(), "0 done, 0 failed, 1 left; 60 of 100 bytes, 60.0 %");
    EXPECT_FALSE(tally.take_progress());
    clock.advance(1s);
    tally.note_speed();
    EXPECT_EQ(figures().rate, 0);
    tally.reached(one, 90);
    EXPECT_TRUE(tally.take_progress());
    clock.advance(1s);
    tally.note_speed();
    EXPECT_EQ(figures().rate, 15);
}

TEST_F(RunTallyTest, BytesThatAreSentAgainCountAsSpeedButNotAsDone) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.note_speed();
    tally.reached(one, 0);
    tally.reached(one, 60);
    tally.reached(one, 20);
    tally.reached(one, 60);
    clock.advance(1s);
    tally.note_speed();
    EXPECT_EQ(figures().rate, 100);
    EXPECT_EQ(figures().bytes_done, 60);
}

TEST_F(RunTallyTest, TimeLeftIsKnownWhereAWriteTakesLongerThanTheRateLooksBack) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.note_speed();
    tally.reached(one, 0);
    clock.advance(1s);
    tally.reached(one, 20);
    for (int second = 2; second <= 20; ++second) {
        tally.note_speed();
        clock.advance(1s);
    }
    EXPECT_EQ(figures().rate, 0);
    EXPECT_EQ(figures().seconds_left, 76);
}

TEST_F(RunTallyTest, TimeLeftIsUnknownWhenNothingHasMovedForAMinute) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.reached(one, 0);
    tally.note_speed();
    tally.reached(one, 90);
    for (int second = 0; second < 60; ++second) {
        clock.advance(1s);
        tally.note_speed();
    }
    EXPECT_NE(figures().seconds_left, std::nullopt);
    clock.advance(1s);
    tally.note_speed();
    EXPECT_EQ(figures().seconds_left, std::nullopt);
}

TEST_F(RunTallyTest, FileThatIsCompleteBeforeItsSecondReportWasMoved) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.note_speed();
    tally.reached(one, 0);
    tally.finished(one, 100);
    clock.advance(2s);
    tally.note_speed();
    EXPECT_EQ(figures().rate, 50);
}

TEST_F(RunTallyTest, FileThatWasNeverBegunStoodThereAndWasNotMoved) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.note_speed();
    tally.finished(one, 100);
    clock.advance(2s);
    tally.note_speed();
    EXPECT_EQ(figures().rate, 0);
    EXPECT_EQ(figures().bytes_done, 100);
}

/// A lane sends files of a second each: the first report of each comes when it begins.
TEST_F(RunTallyTest, SpeedToldOverAMinuteIsTheTrueOne) {
    constexpr long long SECOND = 1'000'000;
    tally.plan(60, 60 * SECOND);
    tally.note_speed();
    double told = 0;
    for (int second = 0; second < 60; ++second) {
        FileCount one = {.planned = SECOND};
        tally.reached(one, 0);
        clock.advance(600ms);
        tally.reached(one, 600'000);
        clock.advance(400ms);
        tally.finished(one, SECOND);
        tally.note_speed();
        told += figures().rate / 60;
        EXPECT_NEAR(figures().percent, 100.0 * (second + 1) / 60, 0.2);
    }
    EXPECT_NEAR(told, SECOND, SECOND / 100);
}

/// 40 of 100 bytes were done in two files, and 8 of a third.
EarlierPart earlier_part() {
    return {.files = 2, .bytes = 40, .bytes_planned = 100, .percent = 48};
}

TEST_F(RunTallyTest, RunThatIsTakenUpGoesOnWithItsFigures) {
    RunTally again(clock, earlier_part());
    EXPECT_EQ(again.figures("").files_done, 2);
    EXPECT_EQ(again.figures("").bytes_done, 40);
    EXPECT_EQ(again.figures("").bytes_planned, 100);
    EXPECT_EQ(again.figures("").percent, 48);
    again.plan(1, 10);
    EXPECT_EQ(again.figures("").bytes_planned, 100) << "not all is measured";
    again.plan(2, 50);
    again.measured();
    FileCount third = {.planned = 10};
    again.reached(third, 8);
    EXPECT_EQ(again.figures("").percent, 48);
    EXPECT_EQ(again.figures("").bytes_done, 48);
    again.finished(third, 10);
    EXPECT_EQ(again.figures("").percent, 50);
    EXPECT_EQ(again.figures("").files_done, 3);
    EXPECT_EQ(again.figures("").files_left, 2);
    again.all_planned();
    FileCount rest = {.planned = 50};
    again.finished(rest, 50);
    EXPECT_EQ(again.figures("").percent, 100);
}

TEST_F(RunTallyTest, RunThatIsTakenUpMayFindMoreThanBefore) {
    RunTally again(clock, earlier_part());
    again.plan(1, 160);
    EXPECT_EQ(again.figures("").bytes_planned, 200);
    again.measured();
    EXPECT_EQ(again.figures("").percent, 48) << "what was told stays";
}

TEST_F(RunTallyTest, ProgressIsToldOnce) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.reached(one, 0);
    EXPECT_FALSE(tally.take_progress());
    tally.reached(one, 10);
    EXPECT_TRUE(tally.take_progress());
    EXPECT_FALSE(tally.take_progress());
    tally.reached(one, 10);
    EXPECT_FALSE(tally.take_progress());
}

TEST_F(RunTallyTest, BytesThatAreSentAgainAreNoProgress) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.reached(one, 0);
    tally.reached(one, 50);
    EXPECT_TRUE(tally.take_progress());
    tally.reached(one, 0);
    tally.reached(one, 50);
    EXPECT_FALSE(tally.take_progress());
    tally.reached(one, 51);
    EXPECT_TRUE(tally.take_progress());
}

TEST_F(RunTallyTest, FinishedFileIsProgressAlsoWhenNothingHadToBeSent) {
    FileCount empty;
    tally.plan(1, 0);
    tally.finished(empty, 0);
    EXPECT_TRUE(tally.take_progress());
    EXPECT_EQ(text(), "1 done, 0 failed, 0 left; 0 of 0 bytes, 0.0 %");
}

TEST_F(RunTallyTest, FailureNamesTheFirstAndCountsAll) {
    tally.plan(4, 400);
    tally.gave_up(file(), "it is gone");
    tally.gave_up(file(), "access denied");
    EXPECT_EQ(tally.files_failed(), 2);
    EXPECT_EQ(tally.failure(), "2 of 4 files could not be copied; the first: it is gone");
}

TEST_F(RunTallyTest, FiguresHaveSpeedTimeLeftMessageAndTheTimeOfPeople) {
    FileCount one = {.planned = 1000};
    tally.plan(1, 1000);
    tally.note_speed();
    tally.reached(one, 0);
    tally.reached(one, 100);
    EXPECT_EQ(figures().seconds_left, std::nullopt);
    clock.advance(1s);
    tally.note_speed();
    const RunFigures now = tally.figures("the server does not answer");
    EXPECT_EQ(now.rate, 100);
    EXPECT_EQ(now.seconds_left, 9);
    EXPECT_EQ(now.message, "the server does not answer");
    EXPECT_EQ(now.time_ms, (HandClock::WALL_START + 1s).count());
}

/// "planned 2/200 sent 1/100 kept 0/0 failed 1/100 removed 0/0"
std::string account_text(const RunTally& tally) {
    const standalone::RunCounts counts = tally.account("").counts;
    const auto amount = [](const char* what, const standalone::FileAmount& amount) {
        return std::string(what) + ' ' + std::to_string(amount.files) + '/' +
               std::to_string(amount.bytes);
    };
    return amount("planned", counts.planned) + amount(" sent", counts.sent) +
           amount(" kept", counts.kept) + amount(" failed", counts.failed) +
           amount(" removed", counts.removed);
}

TEST_F(RunTallyTest, PlannedFilesOfTheHistoryAreTheSentAndTheFailedOnes) {
    FileCount sent = file();
    FileCount begun = file();
    tally.plan(3, 300);
    tally.reached(sent, 0);
    tally.finished(sent, 100);
    tally.reached(begun, 0);
    tally.reached(begun, 60);
    tally.gave_up(begun, "it is gone", "a");
    tally.gave_up(file(), "access denied", "b");
    EXPECT_EQ(account_text(tally), "planned 3/300 sent 1/160 kept 0/0 failed 2/200 removed 0/0");
    EXPECT_EQ(tally.account("").failures,
              (std::vector<standalone::FailedFile>{{"a", "it is gone"}, {"b", "access denied"}}));
}

TEST_F(RunTallyTest, FileThatStoodThereIsKeptWhetherItWasPlannedOrNot) {
    FileCount equal = file();
    tally.plan(1, 100);
    tally.finished(equal, 100);
    tally.kept(30);
    EXPECT_EQ(account_text(tally), "planned 0/0 sent 0/0 kept 2/130 failed 0/0 removed 0/0");
}

TEST_F(RunTallyTest, FileThatAnEarlierAttemptHasSentIsSent) {
    FileCount one = file();
    tally.plan(1, 100);
    tally.reached(one, 0);
    tally.reached(one, 100);
    one.begun = false;
    tally.finished(one, 100);
    EXPECT_EQ(account_text(tally), "planned 1/100 sent 1/100 kept 0/0 failed 0/0 removed 0/0");
}

TEST_F(RunTallyTest, HistoryOfARunThatIsTakenUpHasItsOwnPartAlone) {
    RunTally later(clock, {.files = 5, .bytes = 500, .bytes_planned = 600, .percent = 83.3});
    FileCount one{.planned = 100};
    later.plan(1, 100);
    later.measured();
    later.reached(one, 40);
    later.finished(one, 100);
    later.removed({3, 33});
    EXPECT_EQ(account_text(later), "planned 1/100 sent 1/60 kept 0/0 failed 0/0 removed 3/33");
}

TEST_F(RunTallyTest, RateOfTheHistoryIsTheAverageOfTheWholeRun) {
    FileCount one{.planned = 1000};
    tally.plan(1, 1000);
    tally.reached(one, 0);
    clock.advance(4s);
    tally.reached(one, 1000);
    clock.advance(6s);
    EXPECT_EQ(tally.account("").counts.rate, 100);
}

TEST_F(RunTallyTest, SoManyFailedFilesAreKeptByNameAndAllAreCounted) {
    const int failed = static_cast<int>(RunAccount::MOST_FAILURES) + 5;
    for (int number = 0; number < failed; ++number) {
        tally.plan(1, 100);
        tally.gave_up(file(), "it is gone");
    }
    EXPECT_EQ(tally.account("").failures.size(), RunAccount::MOST_FAILURES);
    EXPECT_EQ(tally.account("").counts.failed.files, failed);
}

}  // namespace
