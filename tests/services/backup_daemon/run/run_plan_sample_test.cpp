// What a plan makes of the sample of copies that it has read back before it copies anything.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

const std::string A = "Door/2024-03-05/a.mp4";
const std::string B = "Door/2024-03-05/b.mp4";

class RunPlanSampleTest : public RunPlanTest {
protected:
    /// A copy of an earlier run that the next sample is for, with its recording.
    void copied(const std::string& path) {
        const std::string day = path.substr(5, 10);
        ledger.add(path, day);
        ledger.unsampled.insert(path);
        world.share["store/" + path] = 100;
        world.record("/rec/door", day, path.substr(16), 100, 1000);
    }

    void spoil(const std::string& path) { world.spoilt.insert("store/" + path); }

    void lose_recording(const std::string& path) {
        world.erase("/rec/door", path.substr(5, 10), path.substr(16));
    }

    /// The beginnings of all orders, "days" and "look" in one.
    std::string course() {
        std::string words;
        for (const std::string& order : rest()) {
            const std::string word = order.substr(0, order.find(' '));
            if (!words.ends_with(word)) words += (words.empty() ? "" : " ") + word;
        }
        return words;
    }

    static std::string target(const std::string& path) { return "-> store/" + path + " via"; }
};

TEST_F(RunPlanSampleTest, SampleIsReadBackBeforeAnythingIsMeasuredAndNotAgain) {
    copied(A);
    ledger.copies.at(A).sha256 = "abc";
    EXPECT_EQ(next_that("check"),
              "check store/" + A + "=100 \"abc\" of /rec/door/2024-03-05/a.mp4@1000");
    EXPECT_EQ(counts(), "0 done, 0 failed, 0 left; 0 of 0 bytes");
    carry_out();
    EXPECT_EQ(course(), "look room");
    EXPECT_TRUE(ledger.unsampled.empty());
    EXPECT_EQ(plan().failure(), "");
    EXPECT_EQ(notes(COPY_SPOILT), Texts{});
}

TEST_F(RunPlanSampleTest, OneCameraAndDayIsReadAfterTheOther) {
    for (const char* path : {"Door/2024-03-05/a.mp4", "Door/2024-03-06/a.mp4"}) copied(path);
    ASSERT_NE(next_that("check store/Door/2024-03-05"), "");
    EXPECT_EQ(next(2), "");
    carry_out();
    EXPECT_NE(next_that("check store/Door/2024-03-06"), "");
    EXPECT_FALSE(ledger.unsampled.contains(A)) << "a run after a kill goes on behind it";
}

TEST_F(RunPlanSampleTest, CopyOfACameraThatIsNotSelectedIsReadWithoutItsRecording) {
    goal.channels.erase(goal.channels.begin());
    copied(A);
    EXPECT_EQ(next_that("check"), "check store/" + A + "=100 \"\" of /@0");
}

TEST_F(RunPlanSampleTest, PreviewReadsNoCopyBack) {
    goal.purpose = RunPurpose::preview;
    copied(A);
    EXPECT_EQ(rest_that("check"), Texts{});
    EXPECT_TRUE(ledger.unsampled.contains(A));
}

TEST_F(RunPlanSampleTest, SpoiltCopyIsToldAndItsWholeDayIsComparedAndTheRunIsASuccess) {
    for (const std::string& path : {A, B, std::string("Door/2024-03-06/c.mp4")}) copied(path);
    spoil(A);
    const Texts copies = rest_that("copy");
    ASSERT_EQ(copies.size(), 2U) << "the next day is as it was";
    EXPECT_NE(copies[0].find(target(A)), std::string::npos);
    EXPECT_NE(copies[1].find(target(B)), std::string::npos);
    EXPECT_EQ(notes(COPY_SPOILT), Texts{A + " has another content than it was made with"});
    EXPECT_TRUE(world.spoilt.empty());
    EXPECT_TRUE(ledger.spoilt.empty());
    EXPECT_EQ(plan().failure(), "");
    EXPECT_EQ(counts(), "2 done, 0 failed, 0 left; 200 of 200 bytes");
}

TEST_F(RunPlanSampleTest, MissingAndOtherwiseLongCopiesAreToldAsSuch) {
    copied(A);
    copied("Door/2024-03-06/c.mp4");
    world.share.erase("store/" + A);
    world.share["store/Door/2024-03-06/c.mp4"] = 7;
    rest();
    EXPECT_EQ(notes(COPY_SPOILT),
              (Texts{A + " is not there any more",
                     "Door/2024-03-06/c.mp4 has another size than it was made with"}));
}

TEST_F(RunPlanSampleTest, SpoiltCopyWhoseRecordingIsGoneFailsTheRunWhichRemovesNothing) {
    goal.first_kept_day = "2024-03-01";
    ledger.add("Door/2024-02-01/old.mp4", "2024-02-01");
    ledger.add("Door/2024-03-19/new.mp4", "2024-03-19");
    copied(A);
    spoil(A);
    lose_recording(A);
    EXPECT_EQ(rest_that("remove"), Texts{});
    EXPECT_EQ(plan().failure(), "1 of 1 files could not be copied; the first: " + A +
                                    ": the copy is not as it was made, and is not made anew");
    EXPECT_TRUE(ledger.gone.empty());
    EXPECT_TRUE(ledger.spoilt.empty()) << "the next run tells nothing of it";
    EXPECT_TRUE(ledger.unsampled.empty());
}

TEST_F(RunPlanSampleTest, CopyThatARunBeforeAKillFoundSpoiltIsNotForgotten) {
    ledger.add(A, "2024-03-05");
    ledger.spoilt.insert(A);
    rest();
    EXPECT_EQ(tally.files_failed(), 1);
}

TEST_F(RunPlanSampleTest, SpoiltCopyThatCannotBeMadeAnewCountsOnce) {
    copied(A);
    spoil(A);
    ASSERT_NE(next_that("copy"), "");
    fail(FailureKind::occupied);
    rest();
    EXPECT_EQ(counts(), "0 done, 1 failed, 0 left; 0 of 0 bytes");
    EXPECT_TRUE(ledger.spoilt.empty()) << "nor does the next run count it";
}

TEST_F(RunPlanSampleTest, NoRoomIsMadeWhileACopyIsSpoilt) {
    goal.when_full = WhenFull::remove_oldest;
    ledger.add("Door/2024-02-01/old.mp4", "2024-02-01");
    world.share["store/Door/2024-02-01/old.mp4"] = 100;
    copied(A);
    spoil(A);
    ASSERT_NE(next_that("copy"), "");
    fail(FailureKind::full);
    EXPECT_EQ(rest_that("remove store/Door/2024-02-01"), Texts{});
}

TEST_F(RunPlanSampleTest, FirstTenAreTold) {
    for (int day = 10; day < 25; ++day) {
        copied("Door/2024-03-" + std::to_string(day) + "/a.mp4");
        spoil("Door/2024-03-" + std::to_string(day) + "/a.mp4");
    }
    rest();
    EXPECT_EQ(notes(COPY_SPOILT).size(), 10U);
}

TEST_F(RunPlanSampleTest, CopyThatMustNotBeReadIsSpoilt) {
    copied(A);
    ASSERT_NE(next_that("check"), "");
    EXPECT_EQ(fail(FailureKind::denied).kind, FailureStep::Kind::go_on);
    EXPECT_EQ(notes(COPY_SPOILT), Texts{A + " cannot be read: it failed"});
    EXPECT_NE(next_that("copy"), "");
}

TEST_F(RunPlanSampleTest, FailureThatNobodyCanTellTheMeaningOfIsTriedThreeTimes) {
    copied(A);
    for (int attempt = 0; attempt < 2; ++attempt) {
        ASSERT_NE(next_that("check"), "");
        EXPECT_EQ(fail(FailureKind::other).kind, FailureStep::Kind::lose_lane);
        plan().lose(1);
    }
    ASSERT_NE(next_that("check"), "");
    EXPECT_EQ(fail(FailureKind::other).kind, FailureStep::Kind::replace_lane);
    EXPECT_EQ(notes(COPY_SPOILT).size(), 1U);
}

TEST_F(RunPlanSampleTest, CopyAtWhichTheConnectionBreaksEachTimeIsLeftAloneAndTheRunCopies) {
    copied(A);
    world.record("/rec/door", "2024-03-07", "08-00-00.mp4", 100);
    for (int attempt = 0; attempt < 3; ++attempt) {
        ASSERT_NE(next_that("check"), "") << attempt;
        EXPECT_EQ(fail(FailureKind::lost).kind, FailureStep::Kind::lose_lane);
        plan().lose(1);
    }
    EXPECT_EQ(rest_that("check"), Texts{});
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 100 of 100 bytes");
    EXPECT_EQ(notes(COPY_SPOILT), Texts{});
    EXPECT_EQ(plan().failure(), "");
}

TEST_F(RunPlanSampleTest, RecordingThatChangesMeanwhileSaysNothingOfItsCopy) {
    copied(A);
    ASSERT_NE(next_that("check"), "");
    EXPECT_EQ(fail(FailureKind::source).kind, FailureStep::Kind::go_on);
    rest();
    EXPECT_EQ(notes(COPY_SPOILT), Texts{});
    EXPECT_EQ(plan().failure(), "");
}

TEST_F(RunPlanSampleTest, EachPieceOfACopyThatIsReadIsProgress) {
    copied(A);
    ASSERT_NE(next_that("check"), "");
    EXPECT_FALSE(tally.take_progress());
    say(At{0});
    EXPECT_TRUE(tally.take_progress());
    carry_out();
    EXPECT_TRUE(tally.take_progress());
}

TEST_F(RunPlanSampleTest, WhatIsTooMuchForOneRunWaitsForTheNext) {
    const std::string next_day = "Door/2024-03-06/c.mp4";
    copied(A);
    copied(next_day);
    ledger.copies.at(A).size = 100LL << 30;
    world.share["store/" + A] = 100LL << 30;
    EXPECT_EQ(rest_that("check").size(), 1U);
    EXPECT_TRUE(ledger.unsampled.contains(next_day));
}

TEST_F(RunPlanSampleTest, CopyThatAnotherTaskHasMadeAnewIsNoFailure) {
    copied(A);
    spoil(A);
    ASSERT_NE(next_that("room"), "");
    ledger.spoilt.clear();
    lose_recording(A);
    rest();
    EXPECT_EQ(notes(FILE_NOT_COPIED), Texts{});
}

TEST_F(RunPlanSampleTest, PreviewKnowsThatCopiesStayForASpoiltOne) {
    goal.purpose = RunPurpose::preview;
    ledger.add(A, "2024-03-05");
    ledger.spoilt.insert(A);
    rest();
    EXPECT_EQ(plan().preview().why_copies_stay, "there are copies that are not as they were made");
    EXPECT_EQ(ledger.spoilt.size(), 1U);
}

}  // namespace
