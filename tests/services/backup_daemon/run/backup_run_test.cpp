// Whole runs over lanes that a test plays: what they reach, tell and leave behind.
#include "services/backup_daemon/run/backup_run.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/run/run_scene.h"
#include "tests/services/backup_daemon/run/sample_goal.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

using Texts = std::vector<std::string>;
using Ends = std::vector<std::pair<RunOutcome, std::string>>;

/// Two cameras, three files of 3,500 bytes in all, something too old and something begun in vain.
void fill(RunScene& scene) {
    scene.world.record("/rec/door", "2024-03-04", "08-00-00.mp4", 2000);
    scene.world.record("/rec/door", "2024-03-05", "alarm/08-00-00.mp4", 500);
    scene.world.record("/rec/yard", "2024-03-05", "09-00-00.mp4", 1000);
    scene.ledger.add("Door/2024-02-01/1.mp4", "2024-02-01");
    scene.world.share["store/Door/2024-02-01/1.mp4"] = 100;
    scene.ledger.checkpoints["Door/x.mp4"] = {"Door/x.mp4", "Door/.x.mp4.7.part", 10, "abc"};
    scene.world.share["store/Door/.x.mp4.7.part"] = 10;
}

RunGoal goal_with(int lanes) {
    RunGoal goal = sample_goal();
    goal.first_kept_day = "2024-03-01";
    goal.lanes = lanes;
    return goal;
}

TEST(BackupRun, GoesFromItsBeginningToSuccess) {
    for (const int lanes : {1, 2, 3}) {
        RunScene scene(goal_with(lanes));
        fill(scene);
        scene.begin();
        scene.play();
        EXPECT_EQ(scene.ends, (Ends{{RunOutcome::success, ""}}));
        EXPECT_EQ(scene.connected, 1);
        EXPECT_EQ(scene.world.share, (std::map<std::string, long long>{
                                         {"store/Door/2024-03-04/08-00-00.mp4", 2000},
                                         {"store/Door/2024-03-05/alarm/08-00-00.mp4", 500},
                                         {"store/Yard/2024-03-05/09-00-00.mp4", 1000}}));
        EXPECT_EQ(scene.events,
                  (std::vector<RunScene::Event>{
                      {RETENTION_PASS, "1 files of days before 2024-03-01 removed"}}));
        const RunFigures figures = scene.figures();
        EXPECT_EQ(figures.files_done, 3);
        EXPECT_EQ(figures.files_left, 0);
        EXPECT_EQ(figures.bytes_done, 3500);
        EXPECT_EQ(figures.bytes_planned, 3500);
        EXPECT_EQ(figures.percent, 100);
        EXPECT_EQ(figures.message, "");
        EXPECT_TRUE(scene.lanes.pool_is_gone());
    }
}

TEST(BackupRun, SecondRunSendsNothing) {
    RunScene first(goal_with(2));
    fill(first);
    first.begin();
    first.play();
    RunScene second(goal_with(2));
    second.ledger = first.ledger;
    second.world = first.world;
    second.begin();
    second.play();
    EXPECT_EQ(second.ends, (Ends{{RunOutcome::success, ""}}));
    for (const Order& order : second.lanes.given())
        EXPECT_FALSE(std::holds_alternative<CopyJob>(order));
}

TEST(BackupRun, DoesNothingBeforeTheLoopGoesOn) {
    RunScene scene(goal_with(2));
    scene.begin();
    EXPECT_EQ(scene.lanes.opened(), 0);
    scene.clock.advance(0s);
    EXPECT_EQ(scene.lanes.opened(), 1);
    EXPECT_EQ(scene.connected, 0);
}

TEST(BackupRun, KnowsItsTask) {
    RunScene scene(goal_with(1));
    scene.begin();
    EXPECT_EQ(scene.run->task().taskID, "7");
}

TEST(BackupRun, FailsWithoutServerOrShare) {
    for (const bool server : {true, false}) {
        RunGoal goal = goal_with(2);
        (server ? goal.destination.share : goal.destination.server) = "";
        RunScene scene(goal);
        scene.begin();
        EXPECT_TRUE(scene.ends.empty());
        scene.play();
        EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "the task names no server and share"}}));
        EXPECT_EQ(scene.figures().message, "the task names no server and share");
        EXPECT_EQ(scene.lanes.opened(), 0);
    }
}

TEST(BackupRun, FailsWithoutServerAlsoWhenThereIsNothingToDoAndTheSecondIsUp) {
    RunGoal goal = goal_with(2);
    goal.destination.server = "";
    goal.channels.clear();
    RunScene scene(goal);
    scene.begin();
    scene.run->look_after();
    scene.play();
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "the task names no server and share"}}));
}

TEST(BackupRun, WithoutChannelsSucceedsWithoutAConnection) {
    RunGoal goal = goal_with(2);
    goal.channels.clear();
    RunScene scene(goal);
    scene.begin();
    scene.play();
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::success, ""}}));
    EXPECT_EQ(scene.lanes.opened(), 0);
    EXPECT_EQ(scene.connected, 0);
}

TEST(BackupRun, FailsInTheEndWhenAChannelIsMissing) {
    RunGoal goal = goal_with(2);
    goal.missing_channels = {"5"};
    RunScene scene(goal);
    fill(scene);
    scene.begin();
    scene.play();
    const std::string why = "1 of 4 files could not be copied; the first: there is no channel 5";
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, why}}));
    EXPECT_EQ(scene.figures().message, why);
    EXPECT_EQ(scene.figures().files_done, 3);
}

TEST(BackupRun, FailsInTheEndWhenAFileFailed) {
    RunScene scene(goal_with(1));
    fill(scene);
    scene.begin();
    while (scene.lanes.opened() == 0 || !scene.lanes.order(1) ||
           !std::holds_alternative<CopyJob>(*scene.lanes.order(1)))
        ASSERT_TRUE(scene.step());
    scene.lanes.fail(1, FailureKind::denied, "access denied");
    EXPECT_EQ(scene.told(FILE_NOT_COPIED), Texts{"access denied"});
    scene.play();
    EXPECT_EQ(
        scene.ends,
        (Ends{{RunOutcome::failed, "1 of 3 files could not be copied; the first: access denied"}}));
    EXPECT_EQ(scene.figures().files_done, 2);
    EXPECT_EQ(scene.lanes.opened(), 1);
}

TEST(BackupRun, FailsWhenTheShareIsFullAndTellsIt) {
    RunScene scene(goal_with(2));
    fill(scene);
    scene.world.room = 1000;
    scene.begin();
    scene.play();
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::failed, "the share is full: no room"}}));
    EXPECT_EQ(scene.told(SHARE_FULL), Texts{"no room"});
}

TEST(BackupRun, MakesRoomOnAFullShareAndGoesOn) {
    RunGoal goal = goal_with(2);
    goal.when_full = WhenFull::remove_oldest;
    RunScene scene(goal);
    fill(scene);
    scene.world.room = 3550;
    scene.begin();
    scene.play();
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::success, ""}}));
    EXPECT_EQ(scene.told(ROOM_MADE), Texts{"2024-02-01, 1 files"});
    EXPECT_TRUE(scene.told(SHARE_FULL).empty());
}

TEST(BackupRun, MayBeDestroyedByWhomItTellsItsEnd) {
    RunScene scene(goal_with(2));
    fill(scene);
    scene.when_ended = [&] { scene.run.reset(); };
    scene.begin();
    scene.play();
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::success, ""}}));
    EXPECT_FALSE(scene.run);
}

TEST(BackupRun, DestroyedRunDropsItsLanesAndTellsNothing) {
    RunScene scene(goal_with(2));
    fill(scene);
    scene.begin();
    for (int step = 0; step < 6; ++step) scene.step();
    EXPECT_FALSE(scene.lanes.open().empty());
    scene.run.reset();
    EXPECT_TRUE(scene.lanes.pool_is_gone());
    EXPECT_FALSE(scene.clock.next_alarm());
    scene.play();
    EXPECT_TRUE(scene.ends.empty());
}

/// How many steps a run takes that nobody cancels, until all that it has to do is to tell its end.
int steps_of_a_run() {
    RunScene scene(goal_with(2));
    fill(scene);
    scene.begin();
    int steps = 0;
    do {
        scene.step();
        ++steps;
    } while (scene.clock.next_alarm() != 0ms);
    return steps;
}

TEST(BackupRun, CanBeCancelledAtEveryPoint) {
    const int steps = steps_of_a_run();
    ASSERT_GT(steps, 20);
    for (int point = 0; point <= steps; ++point) {
        SCOPED_TRACE("cancelled after step " + std::to_string(point));
        RunScene scene(goal_with(2));
        fill(scene);
        scene.begin();
        for (int step = 0; step < point; ++step) scene.step();
        const auto orders = scene.lanes.given().size();
        const bool is_over = point == steps;
        scene.run->cancel();
        scene.run->cancel();
        EXPECT_TRUE(scene.ends.empty());
        scene.run->look_after();
        const long long done = scene.figures().files_done;
        scene.play();
        EXPECT_EQ(scene.ends, (Ends{{is_over ? RunOutcome::success : RunOutcome::cancelled, ""}}));
        EXPECT_EQ(scene.lanes.given().size(), orders);
        EXPECT_EQ(scene.figures().files_done, done);
        EXPECT_EQ(static_cast<std::size_t>(done), scene.ledger.recorded.size());
        EXPECT_EQ(scene.figures().message, "");
        EXPECT_TRUE(scene.lanes.pool_is_gone());
    }
}

TEST(BackupRun, RunAfterACancelledOneSendsOnlyWhatIsMissing) {
    const int steps = steps_of_a_run();
    for (int point = 0; point <= steps; ++point) {
        SCOPED_TRACE("cancelled after step " + std::to_string(point));
        RunScene first(goal_with(2));
        fill(first);
        first.begin();
        for (int step = 0; step < point; ++step) first.step();
        first.run->cancel();
        first.clock.advance(0s);
        RunScene second(goal_with(2));
        second.ledger = first.ledger;
        second.world = first.world;
        second.begin();
        second.play();
        EXPECT_EQ(second.ends, (Ends{{RunOutcome::success, ""}}));
        EXPECT_EQ(second.ledger.recorded.size(), 3U);
        EXPECT_EQ(second.world.share.size(), 3U);
        EXPECT_TRUE(second.ledger.checkpoints.empty());
    }
}

TEST(BackupRun, NothingIsToldAfterTheEnd) {
    RunScene scene(goal_with(2));
    fill(scene);
    scene.begin();
    scene.play();
    scene.run->cancel();
    scene.seconds(3600);
    EXPECT_EQ(scene.ends.size(), 1U);
    EXPECT_EQ(scene.figures().message, "");
}

TEST(BackupRun, WhatLanesSayBetweenTheLastOrderAndTheEndIsNotHeard) {
    RunScene scene(goal_with(2));
    fill(scene);
    scene.begin();
    while (scene.lanes.open().size() < 2) ASSERT_TRUE(scene.step());
    scene.run->cancel();
    const auto orders = scene.lanes.given().size();
    scene.lanes.fail(1, FailureKind::refused, "wrong password");
    scene.lanes.report(1, Done());
    scene.lanes.lose(2);
    EXPECT_EQ(scene.lanes.given().size(), orders);
    EXPECT_TRUE(scene.lanes.dropped().empty());
    scene.clock.advance(0s);
    EXPECT_EQ(scene.ends, (Ends{{RunOutcome::cancelled, ""}}));
    EXPECT_TRUE(scene.events.empty());
}

}  // namespace
