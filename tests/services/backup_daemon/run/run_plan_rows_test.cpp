// What the plan does about empty days, of which there may be thousands in a row.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

constexpr int DAYS = 28;

std::string day_of(int number) {
    return std::string("2024-03-") + (number < 10 ? "0" : "") + std::to_string(number);
}

/// One channel with a month of empty days.
class RunPlanRowsTest : public RunPlanTest {
protected:
    RunPlanRowsTest() {
        goal.channels.pop_back();
        for (int day = 1; day <= DAYS; ++day) world.make_day("/rec/door", day_of(day));
    }

    /// How many days each look was for.
    static std::vector<long> lengths(const Texts& looks) {
        std::vector<long> all;
        for (const std::string& look : looks) all.push_back(1 + std::ranges::count(look, '+'));
        return all;
    }

    static Texts looks(const Texts& orders, bool asked) {
        Texts found;
        for (const std::string& order : orders)
            if (order.starts_with("look") && (order.find(" asked") != std::string::npos) == asked)
                found.push_back(order);
        return found;
    }
};

TEST_F(RunPlanRowsTest, RowsOfEmptyDaysAreMeasuredByFewerAndFewerOrders) {
    goal.lanes = goal.lanes_far = 1;
    const Texts orders = rest();
    EXPECT_EQ(lengths(looks(orders, false)), (std::vector<long>{1, 2, 4, 8, 13}));
    EXPECT_EQ(plan().failure(), "");
    EXPECT_EQ(counts(), "0 done, 0 failed, 0 left; 0 of 0 bytes");
}

TEST_F(RunPlanRowsTest, BeforeCopyingEachRowIsAskedForWithItsStamps) {
    goal.lanes = goal.lanes_far = 1;
    const Texts asked = looks(rest(), true);
    long days = 0;
    for (const long length : lengths(asked)) days += length;
    EXPECT_EQ(days, DAYS);
    ASSERT_FALSE(asked.empty());
    EXPECT_TRUE(asked.back().ends_with(day_of(DAYS) + " stamped")) << asked.back();
}

/// Cameras are measured one after the other, and their days come in turn then.
TEST_F(RunPlanRowsTest, BeforeCopyingTheOldestDayComesFirstWhicheverCamerasItIs) {
    goal.lanes = goal.lanes_far = 1;
    goal.channels = sample_goal().channels;
    goal.selection.first_day = "2023-01-01";
    goal.selection.last_day = "2025-12-31";
    for (const char* day : {"2023-12-31", "2024-02-29", "2024-03-02", "2024-04-01", "2025-01-01"})
        world.make_day("/rec/yard", day);
    std::vector<std::string> days;
    for (const std::string& order : looks(rest(), true))
        for (std::size_t at = order.find("/rec/"); at != order.npos;
             at = order.find("/rec/", at + 1))
            days.push_back(order.substr(at + 10, 10) + order.substr(at + 4, 5));
    EXPECT_EQ(days.size(), DAYS + 5U);
    EXPECT_TRUE(
        std::ranges::is_sorted(days, {}, [](const auto& day) { return day.substr(0, 10); }));
    EXPECT_EQ(std::ranges::count(days, "2024-03-02/yard"), 1);
    EXPECT_EQ(days.front(), "2023-12-31/yard");
    EXPECT_EQ(days.back(), "2025-01-01/yard");
}

TEST_F(RunPlanRowsTest, DayWithRecordingsInARowHasALookOfItsOwn) {
    world.record("/rec/door", day_of(20), "08-00-00.mp4", 100);
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(counts(), "1 done, 0 failed, 0 left; 100 of 100 bytes");
}

TEST_F(RunPlanRowsTest, DaysWithRecordingsAreAskedForOneByOne) {
    for (int day = 1; day <= DAYS; ++day)
        world.record("/rec/door", day_of(day), "08-00-00.mp4", 100);
    for (const long length : lengths(looks(rest(), false))) EXPECT_EQ(length, 1);
    EXPECT_EQ(counts(), "28 done, 0 failed, 0 left; 2800 of 2800 bytes");
}

TEST_F(RunPlanRowsTest, RecordingThatComesBeforeItsEmptyDayIsLookedAtAgainIsCopied) {
    next_that("look /rec/door 2024-03-01 normal alarm store/Door/2024-03-01 asked");
    for (const int day : {1, 2, 17, 18, DAYS})
        world.record("/rec/door", day_of(day), "08-00-00.mp4", 100);
    carry_out();
    EXPECT_EQ(rest_that("copy").size(), 5U);
    EXPECT_EQ(counts(), "5 done, 0 failed, 0 left; 500 of 500 bytes");
}

/// Copying may take hours, in which more may come: so the next look is right before its turn.
TEST_F(RunPlanRowsTest, RestOfARowWaitsWhileThereAreFilesToCopy) {
    goal.lanes = goal.lanes_far = 1;
    next_that("look /rec/door 2024-03-01 normal alarm store/Door/2024-03-01 asked");
    for (const int day : {10, 11})
        for (const char* file : {"08-00-00.mp4", "09-00-00.mp4", "10-00-00.mp4"})
            world.record("/rec/door", day_of(day), file, 100);
    carry_out();
    std::string kinds;
    for (const std::string& order : rest()) kinds += order.front();
    EXPECT_NE(kinds.find("lccclccc"), std::string::npos) << kinds;
    EXPECT_EQ(counts(), "6 done, 0 failed, 0 left; 600 of 600 bytes");
}

TEST_F(RunPlanRowsTest, RowOfALostLaneIsAskedForAgain) {
    goal.lanes = goal.lanes_far = 1;
    for (int look = 0; look < 3; ++look) {
        next_that("look");
        carry_out();
    }
    const std::string order = next();
    EXPECT_GT(std::ranges::count(order, '+'), 3);
    say(Entries{.entries = {}, .disk = "disk", .empty = {{.inode = 1}}, .looked_at = {1, 1}});
    plan().lose(1);
    EXPECT_EQ(next(2), order);
}

TEST_F(RunPlanRowsTest, BehindADayThatCannotBeReadItsRowGoesOn) {
    world.record("/rec/door", day_of(DAYS), "08-00-00.mp4", 100);
    for (int look = 0; look < 3; ++look) {
        next_that("look");
        carry_out();
    }
    next();
    fail(FailureKind::source, 1, "it cannot be read");
    EXPECT_EQ(rest_that("copy").size(), 1U);
    EXPECT_EQ(counts(), "1 done, 1 failed, 0 left; 100 of 100 bytes");
}

TEST_F(RunPlanRowsTest, DiskThatGoesWhileItsEmptyDaysAreLookedAtIsAFailure) {
    next_that("look /rec/door 2024-03-01 normal alarm store/Door/2024-03-01 asked");
    carry_out();
    ASSERT_TRUE(next().starts_with("look"));
    say(Entries{});
    say(Done());
    ASSERT_TRUE(next().starts_with("days"));
    say(Days{.names = {}, .newest = "2024-03-20", .disk = "another one"});
    rest();
    EXPECT_EQ(plan().failure(),
              "1 of 1 files could not be copied; the first: /rec/door: is another folder than it "
              "was, or another disk");
}

TEST_F(RunPlanRowsTest, MoreEmptyDaysThanWereAskedForAreNoAnswer) {
    ASSERT_NE(next_that("look"), "");
    EXPECT_FALSE(plan().take(1, Entries{.entries = {}, .disk = "disk", .empty = {{.inode = 1}}}));
}

}  // namespace
