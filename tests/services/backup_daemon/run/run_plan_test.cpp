// The plan's way from the days to the copies: which orders there are, when, and with what in them.
#include "platform/standalone/store/recording_folder.h"
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

// What a plan asks of its two channels before anything else.
const Texts FINDING{"days /rec/door 2024-03-01..2024-03-31",
                    "days /rec/yard 2024-03-01..2024-03-31"};

TEST_F(RunPlanTest, AsksEveryChannelForItsDaysAndWaitsForAllOfThem) {
    EXPECT_EQ(next(1), FINDING[0]);
    EXPECT_EQ(next(2), FINDING[1]);
    EXPECT_EQ(next(3), "");
    say(Days{{"2024-03-01"}}, 2);
    EXPECT_EQ(next(2), "");
    EXPECT_FALSE(plan().is_over());
    say(Days{}, 1);
    EXPECT_EQ(next(1), "look /rec/yard 2024-03-01 normal alarm store/Yard/2024-03-01");
}

TEST_F(RunPlanTest, LaneWithAnOrderGetsNoOther) {
    EXPECT_FALSE(plan().is_busy(1));
    EXPECT_EQ(next(1), FINDING[0]);
    EXPECT_TRUE(plan().is_busy(1));
    EXPECT_FALSE(plan().is_busy(2));
    EXPECT_EQ(next(1), "");
    EXPECT_GT(plan().waiting_orders(), 0);
}

TEST_F(RunPlanTest, MeasuresAllDaysOfEachChannelBeforeAnyIsCopied) {
    world.record("/rec/door", "2024-03-01", "08-00-00.mp4", 100);
    world.record("/rec/door", "2024-03-03", "08-00-00.mp4", 10);
    world.record("/rec/yard", "2024-03-01", "08-00-00.mp4", 1);
    world.record("/rec/yard", "2024-03-02", "08-00-00.mp4", 1000);
    const Texts orders = rest();
    ASSERT_EQ(orders.size(), 16U);
    const Texts measuring(orders.begin() + 2, orders.begin() + 6);
    EXPECT_EQ(measuring, (Texts{"look /rec/door 2024-03-01 normal alarm store/Door/2024-03-01",
                                "look /rec/door 2024-03-03 normal alarm store/Door/2024-03-03",
                                "look /rec/yard 2024-03-01 normal alarm store/Yard/2024-03-01",
                                "look /rec/yard 2024-03-02 normal alarm store/Yard/2024-03-02"}));
    EXPECT_EQ(orders[6], "room");
    EXPECT_EQ(orders[7], measuring[0] + " asked");
    EXPECT_EQ(counts(), "4 done, 0 failed, 0 left; 1111 of 1111 bytes");
    for (const auto& [path, copy] : ledger.copies) EXPECT_EQ(copy.day, path.substr(5, 10));
}

TEST_F(RunPlanTest, CountsWhatItMeasuresBeforeTheFirstCopy) {
    world.record("/rec/door", "2024-03-01", "08-00-00.mp4", 100);
    world.record("/rec/door", "2024-03-02", "08-00-00.mp4", 10);
    world.record("/rec/door", "2024-03-02", "alarm/08-00-00.mp4", 1);
    EXPECT_NE(next_that("copy"), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 3 left; 0 of 111 bytes");
    EXPECT_EQ(tally.figures("").percent, 0);
}

TEST_F(RunPlanTest, CopiesDayByDayFromTheOldestAcrossChannels) {
    for (const char* day : {"2024-03-02", "2024-03-01"}) {
        world.record("/rec/yard", day, "07-00-00.mp4", 100);
        world.record("/rec/door", day, "08-00-00.mp4", 100);
        world.record("/rec/door", day, "09-00-00.mp4", 100);
    }
    goal.check = false;
    const std::string made = ".mp4.01234567-7.part recorded -1 from 0 \"\"";
    const auto copy = [&](const std::string& from, const std::string& to, const std::string& day,
                          const std::string& time) {
        return "copy /rec/" + from + "/" + day + "/" + time + ".mp4 -> store/" + to + "/" + day +
               "/" + time + ".mp4 via store/" + to + "/" + day + "/." + time + made;
    };
    EXPECT_EQ(rest_that("copy"), (Texts{copy("door", "Door", "2024-03-01", "08-00-00"),
                                        copy("door", "Door", "2024-03-01", "09-00-00"),
                                        copy("yard", "Yard", "2024-03-01", "07-00-00"),
                                        copy("door", "Door", "2024-03-02", "08-00-00"),
                                        copy("door", "Door", "2024-03-02", "09-00-00"),
                                        copy("yard", "Yard", "2024-03-02", "07-00-00")}));
}

TEST_F(RunPlanTest, SelectionGoesIntoTheOrders) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    world.record("/rec/door", "2024-03-05", "alarm/09-00-00.mp4", 100);
    goal.channels.pop_back();
    goal.selection = {
        .first_day = "2024-03-05", .last_day = "2024-03-06", .normal = false, .alarm = true};
    const Texts orders = rest();
    ASSERT_EQ(orders.size(), 6U);
    EXPECT_EQ(orders[0], "days /rec/door 2024-03-05..2024-03-06");
    EXPECT_EQ(orders[1], "look /rec/door 2024-03-05 alarm store/Door/2024-03-05");
    EXPECT_EQ(orders[2], "room");
    EXPECT_EQ(orders[3], "look /rec/door 2024-03-05 alarm store/Door/2024-03-05 asked");
    EXPECT_EQ(orders[4],
              "copy /rec/door/2024-03-05/alarm/09-00-00.mp4 -> "
              "store/Door/2024-03-05/alarm/09-00-00.mp4 via "
              "store/Door/2024-03-05/alarm/.09-00-00.mp4.01234567-7.part recorded -1 from 0 \"\" "
              "checked");
}

TEST_F(RunPlanTest, NormalRecordingsAlone) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    goal.selection.alarm = false;
    EXPECT_EQ(next_that("look"), "look /rec/door 2024-03-05 normal store/Door/2024-03-05");
}

TEST_F(RunPlanTest, DestinationMayBeTheShareItself) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    goal.destination.folder = "";
    EXPECT_EQ(next_that("copy"),
              "copy /rec/door/2024-03-05/08-00-00.mp4 -> Door/2024-03-05/08-00-00.mp4 via "
              "Door/2024-03-05/.08-00-00.mp4.01234567-7.part recorded -1 from 0 \"\" checked");
    EXPECT_TRUE(ledger.checkpoints.contains("Door/2024-03-05/08-00-00.mp4"));
}

TEST_F(RunPlanTest, DescriptionIsAskedForWithItsFacts) {
    world.record("/rec/yard", "2024-03-05", "08-00-07.mp4", 100);
    goal.side_files = true;
    const std::string start =
        std::to_string(standalone::recording_start("2024-03-05", "08-00-07.mp4"));
    const std::string order = next_that("copy");
    EXPECT_TRUE(order.ends_with(" checked side 2 g2 " + start)) << order;
    carry_out();
    EXPECT_TRUE(ledger.copies.at("Yard/2024-03-05/08-00-07.mp4").side_file);
}

TEST_F(RunPlanTest, CopyIsRecordedAsItsLaneReportsIt) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100, 55);
    ASSERT_NE(next_that("copy"), "");
    EXPECT_TRUE(ledger.copies.empty());
    say(Copied{{130, 77, "abc", 78}});
    const CopiedFile& copy = ledger.copies.at("Door/2024-03-05/08-00-00.mp4");
    EXPECT_EQ(copy.day, "2024-03-05");
    EXPECT_EQ(copy.size, 130);
    EXPECT_EQ(copy.modified_ns, 77);
    EXPECT_EQ(copy.sha256, "abc");
    EXPECT_EQ(copy.share_modified_ns, 78);
    EXPECT_FALSE(copy.side_file);
    EXPECT_FALSE(copy.removed);
    EXPECT_TRUE(ledger.checkpoints.empty());
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 130 of 130 bytes");
}

TEST_F(RunPlanTest, TemporaryFileIsKnownToTheMemoryBeforeItIsMade) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("copy"), "");
    const Checkpoint& made = ledger.checkpoints.at("Door/2024-03-05/08-00-00.mp4");
    EXPECT_EQ(made.temporary, "Door/2024-03-05/.08-00-00.mp4.01234567-7.part");
    EXPECT_EQ(made.offset, 0);
    EXPECT_EQ(made.sha256, "");
}

TEST_F(RunPlanTest, CheckpointsAreKeptAsTheyAreReported) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 9000);
    ASSERT_NE(next_that("copy"), "");
    say(At{5});
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 0 of 9000 bytes") << "a sign of life";
    say(At{0, true});
    say(Noted{3000, "abc"});
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 3000 of 9000 bytes");
    say(At{3500});
    const Checkpoint& made = ledger.checkpoints.at("Door/2024-03-05/08-00-00.mp4");
    EXPECT_EQ(made.temporary, "Door/2024-03-05/.08-00-00.mp4.01234567-7.part");
    EXPECT_EQ(made.offset, 3000);
    EXPECT_EQ(made.sha256, "abc");
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 3500 of 9000 bytes");
    say(Noted{0, ""});
    EXPECT_EQ(ledger.checkpoints.begin()->second.offset, 0);
}

TEST_F(RunPlanTest, FileThatWasBegunGoesOnWhereItStopped) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 9000);
    ledger.checkpoints["Door/2024-03-05/08-00-00.mp4"] = {
        "Door/2024-03-05/08-00-00.mp4", "Door/2024-03-05/.08-00-00.mp4.01234567-7.part", 4000,
        "abc"};
    const std::string order = next_that("copy");
    EXPECT_TRUE(order.ends_with(" from 4000 \"abc\" checked")) << order;
    EXPECT_EQ(ledger.checkpoints.begin()->second.offset, 4000);
}

TEST_F(RunPlanTest, FileOfALostLaneGoesOnWhereThatLaneNotedIt) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 9000);
    ASSERT_NE(next_that("copy"), "");
    say(Noted{3000, "abc"});
    plan().lose(1);
    EXPECT_FALSE(plan().is_busy(1));
    const std::string order = next(2);
    EXPECT_TRUE(order.ends_with(" from 3000 \"abc\" checked")) << order;
}

TEST_F(RunPlanTest, OrderOfALostLaneIsTheNextOne) {
    EXPECT_EQ(next(1), FINDING[0]);
    plan().lose(1);
    plan().lose(1);
    plan().lose(9);
    EXPECT_EQ(next(2), FINDING[0]);
    EXPECT_EQ(next(1), FINDING[1]);
}

TEST_F(RunPlanTest, PartsOfADayCountOnceWhenTheLaneIsLostInBetween) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("look"), "");
    say(Entries{{{"08-00-00.mp4", false, 100, 1, -1}}});
    plan().lose(1);
    ASSERT_NE(next_that("copy"), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 0 of 100 bytes");
}

TEST_F(RunPlanTest, NothingIsDoneBeforeTheLastPartOfADay) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("look"), "");
    say(Entries{{{"08-00-00.mp4", false, 100, 1, -1}}});
    EXPECT_EQ(counts(), "0 done, 0 failed, 0 left; 0 of 0 bytes");
    EXPECT_EQ(next(2), "");
    say(Done());
    EXPECT_EQ(counts(), "0 done, 0 failed, 1 left; 0 of 100 bytes");
}

TEST_F(RunPlanTest, RunWithoutAChannelIsOverAtOnce) {
    goal.channels.clear();
    plan().settle();
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(plan().waiting_orders(), 0);
    EXPECT_EQ(counts(), "0 done, 0 failed, 0 left; 0 of 0 bytes");
}

TEST_F(RunPlanTest, ChannelsThatThereAreNotAreFailedFiles) {
    goal.missing_channels = {"5", "9"};
    EXPECT_EQ(next(), FINDING[0]);
    EXPECT_EQ(counts(), "0 done, 2 failed, 0 left; 0 of 0 bytes");
    EXPECT_EQ(tally.failure(),
              "2 of 2 files could not be copied; the first: there is no channel 5");
}

TEST_F(RunPlanTest, IsOverOnlyWhenTheLastOrderIsAnswered) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    ASSERT_NE(next_that("copy"), "");
    plan().settle();
    EXPECT_FALSE(plan().is_over());
    carry_out();
    EXPECT_EQ(next(), "room");
    EXPECT_FALSE(plan().is_over());
    carry_out();
    EXPECT_EQ(next(), "");
    EXPECT_TRUE(plan().is_over());
    EXPECT_EQ(tally.figures("").percent, 100);
}

}  // namespace
