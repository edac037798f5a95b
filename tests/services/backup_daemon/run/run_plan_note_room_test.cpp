// What a run notes of the room on its share, for whoever tells people that there is little left.
#include "tests/services/backup_daemon/run/run_plan_fixture.h"

using namespace services;

namespace {

using Kind = FailureStep::Kind;
using Rooms = std::map<std::string, std::string>;

constexpr char SHARE[] = "//nas:445/backup";

class RunPlanNoteRoomTest : public RunPlanTest {
protected:
    /// Nothing is left but the question at the end, which no lane has been given.
    void finish_all_else() {
        for (const char* channel : {"/rec/door", "/rec/yard"}) {
            ASSERT_TRUE(next().starts_with(std::string("days ") + channel));
            carry_out();
        }
        plan().settle();
        ASSERT_EQ(plan().waiting_orders(), 1);
    }

    void expect_success() {
        plan().settle();
        EXPECT_TRUE(plan().is_over());
        EXPECT_EQ(plan().failure(), "");
        EXPECT_EQ(ledger.rooms, Rooms());
    }
};

TEST_F(RunPlanNoteRoomTest, RoomIsNotedBeforeTheCopyingAndAtTheEnd) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    world.room = 1000;
    ASSERT_EQ(next_that("room"), "room");
    carry_out();
    EXPECT_EQ(ledger.rooms, (Rooms{{SHARE, "1000 of 1000"}}));
    EXPECT_EQ(rest().back(), "room");
    EXPECT_EQ(ledger.rooms, (Rooms{{SHARE, "900 of 1000"}}));
}

TEST_F(RunPlanNoteRoomTest, RunWithNothingToCopyAsksOnce) {
    EXPECT_EQ(rest_that("room").size(), 1U);
    EXPECT_EQ(ledger.rooms.size(), 1U);
}

TEST_F(RunPlanNoteRoomTest, ServerThatDoesNotTellIsNotedAsSuch) {
    world.tells_room = false;
    rest();
    EXPECT_EQ(ledger.rooms, (Rooms{{SHARE, "not told"}}));
}

TEST_F(RunPlanNoteRoomTest, PreviewNotesNothing) {
    world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
    goal.purpose = RunPurpose::preview;
    EXPECT_EQ(rest_that("room").size(), 1U);
    EXPECT_EQ(ledger.rooms, Rooms());
}

TEST_F(RunPlanNoteRoomTest, RunDoesNotFailOfTheQuestionAtItsEnd) {
    finish_all_else();
    ASSERT_EQ(next(), "room");
    EXPECT_EQ(fail(FailureKind::refused).kind, Kind::replace_lane);
    expect_success();
}

TEST_F(RunPlanNoteRoomTest, RunDoesNotWaitForAConnectionToAsk) {
    finish_all_else();
    EXPECT_EQ(fail(FailureKind::lost).kind, Kind::replace_lane) << "it cannot connect";
    expect_success();
}

TEST_F(RunPlanNoteRoomTest, LaneThatFallsSilentIsNotReplacedToAsk) {
    finish_all_else();
    ASSERT_EQ(next(), "room");
    plan().lose(1);
    expect_success();
}

}  // namespace
