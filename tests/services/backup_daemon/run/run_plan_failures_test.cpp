// What the plan makes of failures: of every kind, at every kind of order, often and in a row.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

using Kind = FailureStep::Kind;

constexpr int KINDS = static_cast<int>(LAST_FAILURE_KIND) + 1;

std::string file_name(int number) {
    return "08-" + std::to_string(10 + number / 50) + "-" + std::to_string(10 + number % 50) +
           ".mp4";
}

class RunPlanFailuresTest : public RunPlanTest {
protected:
    /// A day of so many files of 100 bytes.
    void record(int files) {
        for (int number = 0; number < files; ++number)
            world.record("/rec/door", "2024-03-05", file_name(number), 100);
    }

    /// One after the other fails; gives what the last one asked for.
    Kind fail_files(FailureKind kind, int times) {
        Kind last = Kind::go_on;
        for (int time = 0; time < times; ++time) {
            EXPECT_NE(next_that("copy"), "");
            last = fail(kind, 1, "failure " + std::to_string(time + 1)).kind;
        }
        return last;
    }
};

TEST_F(RunPlanFailuresTest, OfAFileByKind) {
    record(KINDS);
    const std::map<FailureKind, Kind> steps{
        {FailureKind::lost, Kind::lose_lane},    {FailureKind::refused, Kind::end_run},
        {FailureKind::unknown, Kind::lose_lane}, {FailureKind::denied, Kind::go_on},
        {FailureKind::other, Kind::lose_lane},   {FailureKind::gone, Kind::go_on},
        {FailureKind::source, Kind::go_on},      {FailureKind::occupied, Kind::go_on},
        {FailureKind::mismatch, Kind::go_on}};
    // What a full share does is a test of its own (run_plan_room_test.cpp).
    ASSERT_EQ(steps.size(), static_cast<std::size_t>(KINDS) - 1);
    int failed = 0;
    for (const auto& [kind, wanted] : steps) {
        ASSERT_NE(next_that("copy"), "");
        const FailureStep step = fail(kind, 1, "the words");
        EXPECT_EQ(step.kind, wanted) << static_cast<int>(kind);
        const bool told = wanted == Kind::lose_lane || wanted == Kind::end_run;
        EXPECT_EQ(step.why, told ? "the words" : "");
        failed += wanted == Kind::go_on ? 1 : 0;
        EXPECT_EQ(tally.files_failed(), failed);
        EXPECT_EQ(plan().is_busy(1), wanted != Kind::go_on);
        plan().lose(1);
    }
}

TEST_F(RunPlanFailuresTest, OfAnyOtherOrderEndTheRunUnlessALaneMayHelp) {
    record(1);
    ledger.add("Door/2024-02-01/08-00-00.mp4", "2024-02-01");
    ledger.checkpoints["Door/x"] = {"Door/x", "Door/.x.7.part", 0, ""};
    goal.first_kept_day = "2024-03-01";
    const Texts orders{"days", "look",
                       "look /rec/door 2024-03-05 normal alarm store/Door/2024-03-05 asked",
                       "remove store/Door/2024-02-01", "remove store/Door/.x"};
    for (const std::string& beginning : orders)
        for (int number = 0; number < KINDS; ++number) {
            const auto kind = static_cast<FailureKind>(number);
            SCOPED_TRACE(beginning + ", failure " + std::to_string(number));
            const std::string order = next_that(beginning);
            ASSERT_NE(order, "");
            // A run goes on without what cannot be read: see below.
            if (kind == FailureKind::source && !beginning.starts_with("remove")) {
                plan().lose(1);
                continue;
            }
            const FailureStep step = fail(kind, 1, "the words");
            const bool lane = kind == FailureKind::lost || kind == FailureKind::unknown ||
                              kind == FailureKind::other;
            EXPECT_EQ(step.kind, lane ? Kind::lose_lane : Kind::end_run);
            EXPECT_EQ(step.why, "the words");
            EXPECT_EQ(tally.files_failed(), 0);
            plan().lose(1);
            EXPECT_EQ(next(), order);
            plan().lose(1);
        }
    EXPECT_EQ(notes(SHARE_FULL), Texts{});
}

TEST_F(RunPlanFailuresTest, ChannelThatCannotBeReadCountsAndTheOthersAreCopied) {
    world.record("/rec/yard", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_TRUE(next().starts_with("days /rec/door"));
    EXPECT_EQ(fail(FailureKind::source, 1, "the words").kind, Kind::go_on);
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(counts(), "1 done, 1 failed, 0 left; 100 of 100 bytes");
    EXPECT_EQ(tally.failure(), "1 of 2 files could not be copied; the first: the words");
    EXPECT_EQ(notes(FILE_NOT_COPIED), Texts{"the words"});
}

TEST_F(RunPlanFailuresTest, DayThatCannotBeReadCountsOnceAndTheOthersAreCopied) {
    world.record("/rec/door", "2024-03-04", "08-00-00.mp4", 100);
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("look /rec/door 2024-03-04"), "");
    EXPECT_EQ(fail(FailureKind::source, 1, "the words").kind, Kind::go_on);
    EXPECT_EQ(counts(), "0 done, 1 failed, 0 left; 0 of 0 bytes");
    ASSERT_NE(next_that("look /rec/door 2024-03-04 normal alarm store/Door/2024-03-04 asked"), "");
    EXPECT_EQ(fail(FailureKind::source, 1, "the words").kind, Kind::go_on);
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(counts(), "1 done, 1 failed, 0 left; 100 of 100 bytes");
    EXPECT_EQ(notes(FILE_NOT_COPIED), Texts{"the words"});
}

TEST_F(RunPlanFailuresTest, DayThatCanBeReadNoMoreTakesBackWhatWasMeasured) {
    record(2);
    ASSERT_NE(next_that("look /rec/door 2024-03-05 normal alarm store/Door/2024-03-05 asked"), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 2 left; 0 of 200 bytes");
    EXPECT_EQ(fail(FailureKind::source).kind, Kind::go_on);
    EXPECT_EQ(counts(), "0 done, 1 failed, 0 left; 0 of 0 bytes");
}

TEST_F(RunPlanFailuresTest, OfALaneThatCannotConnect) {
    RunPlan fresh(goal, places, memory, tally);
    for (int number = 0; number < KINDS; ++number) {
        const auto kind = static_cast<FailureKind>(number);
        const FailureStep step = fresh.fail(4, {kind, "the words"});
        const bool for_good = kind == FailureKind::refused || kind == FailureKind::unknown;
        EXPECT_EQ(step.kind, for_good ? Kind::end_run : Kind::lose_lane);
        EXPECT_EQ(step.why, "the words");
    }
    EXPECT_EQ(tally.files_failed(), 0);
}

TEST_F(RunPlanFailuresTest, ServersNameThatWasKnownBeforeMayBeKnownAgain) {
    ASSERT_NE(next(), "");
    EXPECT_EQ(fail(FailureKind::unknown, 4).kind, Kind::lose_lane);
    EXPECT_EQ(fail(FailureKind::refused, 4).kind, Kind::end_run);
}

TEST_F(RunPlanFailuresTest, FileThatNobodyCanTellAboutIsTriedThreeTimes) {
    record(2);
    const std::string order = next_that("copy");
    EXPECT_EQ(fail(FailureKind::other).kind, Kind::lose_lane);
    plan().lose(1);
    EXPECT_EQ(next(2), order);
    EXPECT_EQ(fail(FailureKind::other, 2).kind, Kind::lose_lane);
    plan().lose(2);
    EXPECT_EQ(next(3), order);
    EXPECT_EQ(fail(FailureKind::other, 3).kind, Kind::replace_lane);
    EXPECT_FALSE(plan().is_busy(3));
    EXPECT_EQ(counts(), "0 done, 1 failed, 1 left; 0 of 100 bytes");
    EXPECT_NE(next_that("copy", 4), order);
    EXPECT_EQ(fail(FailureKind::other, 4).kind, Kind::lose_lane);
}

TEST_F(RunPlanFailuresTest, LostConnectionsAreNoAttempts) {
    record(1);
    for (int loss = 0; loss < 5; ++loss) {
        ASSERT_NE(next_that("copy"), "");
        EXPECT_EQ(fail(FailureKind::lost).kind, Kind::lose_lane);
        plan().lose(1);
    }
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(fail(FailureKind::other).kind, Kind::lose_lane);
}

TEST_F(RunPlanFailuresTest, RunEndsWhenAnythingButAFileFailsThreeTimes) {
    for (const Kind wanted : {Kind::lose_lane, Kind::lose_lane, Kind::end_run}) {
        ASSERT_NE(next(), "");
        EXPECT_EQ(fail(FailureKind::other, 1, "the words").kind, wanted);
        plan().lose(1);
        ASSERT_NE(next(2), "");
        plan().lose(2);
    }
    EXPECT_EQ(tally.files_failed(), 0);
}

TEST_F(RunPlanFailuresTest, FailedFileTakesItsBytesAlongAndIsNotSentAgain) {
    record(2);
    ASSERT_NE(next_that("copy"), "");
    say(At{0, true});
    say(At{60});
    EXPECT_EQ(counts(), "0 done, 0 failed, 2 left; 60 of 200 bytes");
    EXPECT_EQ(fail(FailureKind::source, 1, "the words").kind, Kind::go_on);
    EXPECT_EQ(counts(), "0 done, 1 failed, 1 left; 0 of 100 bytes");
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(counts(), "1 done, 1 failed, 0 left; 100 of 100 bytes");
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(tally.failure(), "1 of 2 files could not be copied; the first: the words");
}

TEST_F(RunPlanFailuresTest, TemporaryFileOfAFailedFileIsRemovedInTheEnd) {
    record(1);
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(fail(FailureKind::mismatch).kind, Kind::go_on);
    EXPECT_EQ(rest(),
              (Texts{"remove store/Door/2024-03-05/." + file_name(0) + ".01234567-7.part, folders ",
                     "room"}));
    EXPECT_TRUE(ledger.checkpoints.empty());
}

TEST_F(RunPlanFailuresTest, TwentyDeniedFilesInARowEndTheRun) {
    record(30);
    EXPECT_EQ(fail_files(FailureKind::denied, 19), Kind::go_on);
    ASSERT_NE(next_that("copy"), "");
    const FailureStep step = fail(FailureKind::denied, 1, "the last one");
    EXPECT_EQ(step.kind, Kind::end_run);
    EXPECT_EQ(step.why, "20 of 30 files could not be copied; the first: failure 1");
}

TEST_F(RunPlanFailuresTest, CopyBetweenDeniedFilesBeginsTheRowAnew) {
    record(60);
    EXPECT_EQ(fail_files(FailureKind::denied, 19), Kind::go_on);
    ASSERT_NE(next_that("copy"), "");
    carry_out();
    EXPECT_EQ(fail_files(FailureKind::denied, 19), Kind::go_on);
    EXPECT_EQ(fail_files(FailureKind::denied, 1), Kind::end_run);
}

TEST_F(RunPlanFailuresTest, OtherFailuresNeitherLengthenNorEndTheRowOfDeniedFiles) {
    record(80);
    EXPECT_EQ(fail_files(FailureKind::denied, 19), Kind::go_on);
    EXPECT_EQ(fail_files(FailureKind::gone, 30), Kind::go_on);
    EXPECT_EQ(fail_files(FailureKind::denied, 1), Kind::end_run);
}

TEST_F(RunPlanFailuresTest, FirstTenFailuresAreToldEach) {
    record(12);
    fail_files(FailureKind::gone, 9);
    const Texts told = notes(FILE_NOT_COPIED);
    ASSERT_EQ(told.size(), 9U);
    EXPECT_EQ(told.front(), "failure 1");
    EXPECT_EQ(told.back(), "failure 9");
    EXPECT_EQ(notes(FILE_NOT_COPIED), Texts{});
    fail_files(FailureKind::occupied, 3);
    EXPECT_EQ(notes(FILE_NOT_COPIED), Texts{"failure 1"});
    EXPECT_EQ(tally.files_failed(), 12);
}

}  // namespace
