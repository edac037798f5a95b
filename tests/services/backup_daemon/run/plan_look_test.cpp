// A plan that only looks: over one lane, to its end, and no longer than a server answers.
#include "services/backup_daemon/run/plan_look.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/copy_ledger.h"
#include "tests/services/backup_daemon/run/fake_lanes.h"
#include "tests/services/backup_daemon/run/hand_clock.h"
#include "tests/services/backup_daemon/run/recording_world.h"
#include "tests/services/backup_daemon/run/sample_goal.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

RunGoal preview_goal() {
    RunGoal goal = sample_goal();
    goal.purpose = RunPurpose::preview;
    return goal;
}

class PlanLookTest : public testing::Test {
protected:
    PlanLookTest() {
        world.record("/rec/door", "2024-03-05", "08-00-00.mp4", 100);
        look.begin();
    }

    /// The lane carries out one order.
    void play() {
        for (const Report& report : world.carry_out(*lanes.order(1))) lanes.report(1, report);
    }

    RecordingWorld world;
    CopyLedger ledger;
    LedgerPlaces places{ledger};
    LedgerMemory memory{ledger};
    HandClock clock;
    RunTally tally{clock};
    RunPlan plan{preview_goal(), places, memory, tally};
    FakeLanes lanes{1};
    std::unique_ptr<LanePool> pool = lanes.pool();
    int ends = 0;
    PlanLook look{clock, plan, *pool, [this] { ++ends; }};
};

TEST_F(PlanLookTest, GoesOnUntilAllIsKnown) {
    lanes.report(1, Ready());
    while (ends == 0) {
        clock.advance(89s);
        play();
    }
    EXPECT_FALSE(look.failure());
    EXPECT_EQ(plan.preview().to_copy.files, 1);
    clock.advance(600s);
    EXPECT_EQ(ends, 1);
}

TEST_F(PlanLookTest, EndsWhenTheServerLetsNobodyInAndSaysNothing) {
    clock.advance(89s);
    EXPECT_EQ(ends, 0);
    clock.advance(1s);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(look.failure(), "the server does not answer");
}

TEST_F(PlanLookTest, EndsWhenAnAnswerDoesNotCome) {
    clock.advance(80s);
    lanes.report(1, Ready());
    clock.advance(80s);
    play();
    clock.advance(90s);
    EXPECT_EQ(look.failure(), "the server does not answer");
    EXPECT_EQ(ends, 1);
}

TEST_F(PlanLookTest, EndsWithTheFirstReason) {
    lanes.fail(1, FailureKind::refused, "no such user");
    lanes.lose(1);
    EXPECT_EQ(look.failure(), "no such user");
    EXPECT_EQ(ends, 1);
}

}  // namespace
