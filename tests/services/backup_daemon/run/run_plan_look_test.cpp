// Which recordings the plan sends again, and how far it looks ahead.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

constexpr char PATH[] = "Door/2024-03-05/08-00-00.mp4";
constexpr char ON_SHARE[] = "store/Door/2024-03-05/08-00-00.mp4";

class RunPlanLookTest : public RunPlanTest {
protected:
    /// One recording of 100 bytes that has been copied and still stands on the share.
    RunPlanLookTest() {
        world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100, 1000);
        ledger.add(PATH, "2024-03-05", 100);
        world.share[ON_SHARE] = 100;
    }

    /// How many files the plan counts when all is measured.
    long long measured() {
        next_that("look");
        carry_out();
        return tally.figures("").files_left;
    }
};

TEST_F(RunPlanLookTest, WhatIsCopiedIsNotSentAgain) {
    EXPECT_EQ(rest_that("copy"), Texts{});
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(counts(), "0 done, 0 failed, 0 left; 0 of 0 bytes");
}

TEST_F(RunPlanLookTest, ChannelWithoutAnyRecordingAfterMeasuringIsAFailure) {
    world.record("/rec/door", "2024-03-05", "09-00-00.mp4", 100, 1000);
    world.record("/rec/door", "2024-03-06", "08-00-00.mp4", 100, 1000);
    goal.first_kept_day = "2024-03-20";
    next_that("room");
    for (const char* name : {"08-00-00.mp4", "09-00-00.mp4"})
        world.erase("/rec/door", "2024-03-05", name);
    world.erase("/rec/door", "2024-03-06", "08-00-00.mp4");
    carry_out();
    const Texts orders = rest();
    EXPECT_TRUE(std::ranges::count(orders, "days /rec/door 2024-03-05..2024-03-05") == 1);
    EXPECT_EQ(counts(), "0 done, 2 failed, 0 left; 0 of 0 bytes");
    EXPECT_EQ(plan().failure(),
              "2 of 2 files could not be copied; the first: /rec/door: has no recordings any more");
    EXPECT_TRUE(world.share.contains(ON_SHARE)) << "nothing is removed for its age";
}

TEST_F(RunPlanLookTest, ChannelWithoutAnyRecordingWhenItIsMeasuredIsAFailure) {
    next_that("look");
    world.erase("/rec/door", "2024-03-05", "08-00-00.mp4");
    carry_out();
    rest();
    EXPECT_EQ(tally.files_failed(), 1);
}

TEST_F(RunPlanLookTest, RecordingsOnAnotherDiskThanAtTheBeginningAreAFailure) {
    next_that("look");
    world.erase("/rec/door", "2024-03-05", "08-00-00.mp4");
    carry_out();
    ASSERT_NE(next_that("days"), "");
    say(Days{.names = {}, .newest = "2024-03-20", .disk = "another one"});
    rest();
    EXPECT_EQ(plan().failure(),
              "1 of 1 files could not be copied; the first: /rec/door: is another "
              "folder than it was, or another disk");
}

TEST_F(RunPlanLookTest, OfAnEmptyDayWhoseFolderIsThereNothingMoreIsAsked) {
    ASSERT_NE(next_that("days"), "");
    say(Days{.names = {"2024-03-05"}, .newest = "2024-03-05", .disk = "this one"});
    ASSERT_NE(next_that("look"), "");
    say(Entries{.entries = {}, .disk = "this one"});
    say(Done());
    EXPECT_TRUE(next().starts_with("look")) << "to copy, at once";
    say(Entries{.entries = {}, .disk = "this one"});
    say(Done());
    const Texts orders = rest();
    EXPECT_EQ(
        std::ranges::count_if(orders, [](const auto& text) { return text.starts_with("days"); }),
        0);
    EXPECT_EQ(plan().failure(), "");
}

TEST_F(RunPlanLookTest, OfAnEmptyDayOnAnotherDiskTheChannelIsAskedAgain) {
    ASSERT_NE(next_that("days"), "");
    say(Days{.names = {"2024-03-05"}, .newest = "2024-03-05", .disk = "this one"});
    ASSERT_NE(next_that("look"), "");
    say(Entries{.entries = {}, .disk = "another one"});
    say(Done());
    EXPECT_TRUE(next().starts_with("days"));
}

TEST_F(RunPlanLookTest, MeasuringOfManyDaysIsPlannedNoFurtherThanLanesGo) {
    for (int day = 10; day < 30; ++day)
        world.record("/rec/door", "2024-03-" + std::to_string(day), "08-00-00.mp4", 100, 1000);
    goal.lanes = 3;
    goal.lanes_far = 5;
    next_that("look");
    EXPECT_EQ(plan().waiting_orders(), 4) << "and one that is given";
    carry_out();
    EXPECT_EQ(rest_that("copy").size(), 20U);
}

TEST_F(RunPlanLookTest, DayThatTheRecorderHasRemovedMeanwhileIsNoFailure) {
    world.record("/rec/door", "2024-03-04", "08-00-00.mp4", 100, 1000);
    world.record("/rec/door", "2024-03-06", "08-00-00.mp4", 100, 1000);
    next_that("room");
    world.erase("/rec/door", "2024-03-04", "08-00-00.mp4");
    carry_out();
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 100 of 100 bytes");
    EXPECT_EQ(plan().failure(), "");
}

TEST_F(RunPlanLookTest, RecordingsOfOneNameOnTheShareAreOneCopyAndAFailure) {
    world.record("/rec/door", "2024-03-05", "09-00-00.\xfe", 10, 1000);
    world.record("/rec/door", "2024-03-05", "09-00-00.\xff", 11, 1000);
    world.record("/rec/door", "2024-03-05", "08-00-00.MP4", 12, 1000);
    EXPECT_EQ(rest_that("copy").size(), 2U);
    EXPECT_EQ(counts(), "2 done, 2 failed, 0 left; 22 of 22 bytes");
    const Texts told = notes(FILE_NOT_COPIED);
    ASSERT_EQ(told.size(), 2U);
    for (const std::string& detail : told)
        EXPECT_NE(detail.find("another recording of the day has this name"), std::string::npos);
}

TEST_F(RunPlanLookTest, RecordingOfADescriptionsNameIsAFailureWhereThereAreDescriptions) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4.json", 10, 1000);
    goal.side_files = true;
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(notes(FILE_NOT_COPIED).size(), 1U);
}

TEST_F(RunPlanLookTest, RecordingOfADescriptionsNameIsARecordingWhereThereAreNone) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4.json", 10, 1000);
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 10 of 10 bytes");
}

TEST_F(RunPlanLookTest, CopyOfAnotherTaskCountsTheSame) {
    ledger.foreign = {PATH};
    EXPECT_EQ(rest_that("copy"), Texts{});
}

TEST_F(RunPlanLookTest, RecordingOfAnotherSizeIsSentAgain) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 101, 1000);
    EXPECT_EQ(measured(), 1);
    const std::string order = next_that("copy");
    EXPECT_NE(order.find(" recorded 100 from 0 "), std::string::npos) << order;
}

TEST_F(RunPlanLookTest, RecordingWrittenToSinceIsSentAgain) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100, 1001);
    EXPECT_EQ(measured(), 1);
    EXPECT_NE(next_that("copy"), "");
}

TEST_F(RunPlanLookTest, CopyThatLacksItsDescriptionIsSentAgain) {
    goal.side_files = true;
    EXPECT_EQ(measured(), 1);
    EXPECT_NE(next_that("copy"), "");
}

TEST_F(RunPlanLookTest, CopyThatHasADescriptionNobodyAskedForIsNot) {
    ledger.copies.at(PATH).side_file = true;
    EXPECT_EQ(rest_that("copy"), Texts{});
}

TEST_F(RunPlanLookTest, CopyThatIsGoneFromTheShareIsFoundWhenItsDayComes) {
    world.share.clear();
    EXPECT_EQ(measured(), 0);
    EXPECT_NE(next_that("copy"), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 0 of 100 bytes");
}

TEST_F(RunPlanLookTest, CopyThatIsShorterOnTheShareIsSentAgain) {
    world.share[ON_SHARE] = 99;
    EXPECT_EQ(measured(), 0);
    EXPECT_NE(next_that("copy"), "");
}

TEST_F(RunPlanLookTest, CopyThatMadeRoomIsNotSentAgainWhateverHasChanged) {
    ledger.copies.at(PATH).removed = true;
    world.share.clear();
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 300, 3000);
    goal.side_files = true;
    EXPECT_EQ(rest_that("copy"), Texts{});
}

TEST_F(RunPlanLookTest, AlarmRecordingOfTheSameNameIsAnotherFile) {
    world.record("/rec/door", "2024-03-05", "alarm/08-00-00.mp4", 100, 1000);
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_TRUE(ledger.copies.contains("Door/2024-03-05/alarm/08-00-00.mp4"));
}

TEST_F(RunPlanLookTest, WhatIsFoundReplacesWhatWasMeasured) {
    world.record("/rec/yard", "2024-03-05", "08-00-00.mp4", 10);
    world.record("/rec/yard", "2024-03-05", "09-00-00.mp4", 5);
    ASSERT_NE(next_that("look /rec/door 2024-03-05 normal alarm store/Door/2024-03-05 asked"), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 2 left; 0 of 15 bytes");
    world.record("/rec/yard", "2024-03-05", "08-00-00.mp4", 40);
    world.erase("/rec/yard", "2024-03-05", "09-00-00.mp4");
    carry_out();
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 0 of 40 bytes");
}

/// Days of two files each; a plan that has got as far as the first look at one of them.
class RunPlanAheadTest : public RunPlanTest {
protected:
    void begin(int lanes) {
        goal.lanes = lanes;
        goal.channels.pop_back();
        for (const char* day : {"2024-03-01", "2024-03-02", "2024-03-03"})
            for (const char* name : {"08-00-00.mp4", "09-00-00.mp4"})
                world.record("/rec/door", day, name, 100);
        next_that(look("2024-03-01"));
    }

    static std::string look(const std::string& day) {
        return "look /rec/door " + day + " normal alarm store/Door/" + day + " asked";
    }

    static bool is_copy(const std::string& order) { return order.starts_with("copy"); }
};

TEST_F(RunPlanAheadTest, OneLaneLooksAtTheNextDayWhenNoFileIsLeft) {
    begin(1);
    carry_out();
    for (int file = 0; file < 2; ++file) {
        EXPECT_TRUE(is_copy(next()));
        carry_out();
    }
    EXPECT_EQ(next(), look("2024-03-02"));
}

TEST_F(RunPlanAheadTest, NextDayIsLookedAtBeforeTheLanesRunOutOfFiles) {
    begin(2);
    carry_out();
    EXPECT_TRUE(is_copy(next(1)));
    EXPECT_EQ(next(2), look("2024-03-02"));
    EXPECT_TRUE(is_copy(next(3)));
}

TEST_F(RunPlanAheadTest, OneDayAtATimeIsLookedAt) {
    begin(3);
    EXPECT_EQ(next(2), "");
    carry_out(1);
    EXPECT_EQ(next(1), look("2024-03-02"));
    EXPECT_TRUE(is_copy(next(2)));
    EXPECT_TRUE(is_copy(next(3)));
    EXPECT_EQ(next(4), "");
    plan().lose(1);
    EXPECT_EQ(next(4), look("2024-03-02"));
    EXPECT_EQ(next(5), "");
    carry_out(4);
    EXPECT_EQ(next(5), look("2024-03-03"));
}

TEST_F(RunPlanAheadTest, AfterTheLastDayThereIsNothingToLookAt) {
    begin(9);
    carry_out();
    Texts looks;
    for (const std::string& order : rest())
        if (order.starts_with("look")) looks.push_back(order);
    EXPECT_EQ(looks, (Texts{look("2024-03-02"), look("2024-03-03")}));
    EXPECT_TRUE(plan().is_over());
}

}  // namespace
