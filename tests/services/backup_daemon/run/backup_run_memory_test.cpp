// A run whose memory fails: at every single call, for a while, and for good.
#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/run_checker.h"
#include "tests/services/backup_daemon/run/sample_goal.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

/// A run that asks its memory for everything: copies, room, retention, left-over files.
class BackupRunMemoryTest : public testing::Test {
protected:
    std::unique_ptr<RunScene> make_scene() {
        RunGoal goal = sample_goal();
        goal.when_full = WhenFull::remove_oldest;
        goal.first_kept_day = "2024-02-20";
        goal.side_files = true;
        goal.lanes = 2;
        auto scene = std::make_unique<RunScene>(goal);
        RecordingWorld& world = scene->world;
        world.record("/rec/door", "2024-03-04", "08-00-00.mp4", 2500);
        world.record("/rec/door", "2024-03-05", "alarm/08-00-00.mp4", 500);
        world.record("/rec/yard", "2024-03-05", "09-00-00.mp4", 1000);
        for (const char* day : {"2024-01-01", "2024-02-01", "2024-02-02"}) {
            const std::string path = std::string("Door/") + day + "/1.mp4";
            scene->ledger.add(path, day);
            world.share["store/" + path] = 100;
        }
        scene->ledger.checkpoints["Door/x"] = {"Door/x", "Door/.x.7.part", 10, "abc"};
        // One old copy has to make room, the other two are too old.
        world.room = 4250;
        return scene;
    }

    /// Calls of the memory in a run without failures.
    int calls() {
        const auto scene = make_scene();
        scene->begin();
        scene->play();
        EXPECT_EQ(scene->outcome(), RunOutcome::success);
        EXPECT_EQ(scene->told(ROOM_MADE).size(), 1U);
        return scene->ledger.calls;
    }

    /// Plays a run to its end, every step of it checked.
    void play(RunScene& scene) {
        RunChecker checker(scene);
        scene.begin();
        for (int steps = 0; !scene.has_ended(); ++steps) {
            ASSERT_LT(steps, 10'000) << "the run does not end";
            ASSERT_TRUE(scene.step()) << "the run waits for nothing";
            checker.check();
            if (HasFailure()) return;
        }
        checker.check_end(wanted);
    }

    const std::set<std::string> wanted{"Door/2024-03-04/08-00-00.mp4",
                                       "Door/2024-03-05/alarm/08-00-00.mp4",
                                       "Yard/2024-03-05/09-00-00.mp4"};
};

TEST_F(BackupRunMemoryTest, FailureOfAnySingleCallIsGotOver) {
    const int all = calls();
    ASSERT_GT(all, 20);
    for (int failing = 1; failing <= all; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call == failing; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(scene->outcome(), RunOutcome::success);
        EXPECT_EQ(scene->ledger.recorded.size(), 3U);
        EXPECT_EQ(scene->told(ROOM_MADE).size(), 1U);
        EXPECT_EQ(scene->told(RETENTION_PASS).size(), 1U);
        EXPECT_EQ(scene->told(CONNECTION_LOST),
                  std::vector<std::string>{"the memory does not answer"});
        EXPECT_TRUE(scene->ledger.checkpoints.empty());
    }
}

TEST_F(BackupRunMemoryTest, FailuresForAWhileAreGotOver) {
    const int all = calls();
    for (int first = 1; first <= all; ++first) {
        SCOPED_TRACE("calls from " + std::to_string(first));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call >= first && call < first + 5; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(scene->outcome(), RunOutcome::success);
    }
}

TEST_F(BackupRunMemoryTest, FailureForGoodFailsTheRunAfterThirtyMinutes) {
    const int all = calls();
    for (int first = 1; first <= all; ++first) {
        SCOPED_TRACE("calls from " + std::to_string(first));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call >= first; };
        play(*scene);
        ASSERT_FALSE(HasFailure());
        EXPECT_EQ(scene->outcome(), RunOutcome::failed);
        EXPECT_EQ(scene->why(), "the memory does not answer");
        const auto passed = scene->clock.steady() - HandClock::STEADY_START;
        EXPECT_GE(passed, 30min);
        EXPECT_LT(passed, 32min);
    }
}

TEST_F(BackupRunMemoryTest, TroubleLeavesLanesAlone) {
    const auto scene = make_scene();
    scene->begin();
    scene->clock.advance(0s);
    const auto& given = scene->lanes.given();
    while (given.empty() || !std::holds_alternative<ListDay>(given.back()))
        ASSERT_TRUE(scene->step());
    scene->ledger.refuses = [](int) { return true; };
    while (scene->figures().message.empty()) ASSERT_TRUE(scene->step());
    EXPECT_EQ(scene->figures().message, "the memory does not answer");
    const auto lanes = scene->lanes.open();
    EXPECT_FALSE(lanes.empty());
    scene->clock.advance(1s);
    EXPECT_EQ(scene->lanes.dropped().size(), 1U) << "the one whose report could not be taken";
    scene->ledger.refuses = [](int) { return false; };
    scene->play();
    EXPECT_EQ(scene->outcome(), RunOutcome::success);
}

TEST_F(BackupRunMemoryTest, TroubleIsForgottenWithTheNextProgress) {
    const int all = calls();
    int seen = 0;
    for (int failing = 1; failing <= all; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing));
        const auto scene = make_scene();
        scene->ledger.refuses = [=](int call) { return call == failing; };
        scene->begin();
        while (scene->step() && scene->ledger.calls < failing) continue;
        // Where a report was refused, its lane was dropped, and only a connection mends that.
        if (!scene->lanes.dropped().empty() || scene->figures().message.empty()) continue;
        const long long done = scene->figures().files_done;
        while (scene->figures().files_done == done && scene->step()) continue;
        if (scene->has_ended()) continue;
        ++seen;
        EXPECT_EQ(scene->figures().message, "");
    }
    EXPECT_GT(seen, 0);
}

}  // namespace
