// What stops, deletions and starts in the place of what runs do to runs and to those that wait.
#include "services/backup_daemon/when/run_queue.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

namespace {

TEST_F(RunQueueTest, StoppedTaskLeavesAsCancelled) {
    occupy();
    start("1");
    start("2");
    queue.stop("1");
    EXPECT_EQ(queue.waiting(), Words{"2"});
    EXPECT_EQ(state("1"), "cancel - -");
    EXPECT_EQ(state("2"), "wait - -");
    runner.end("4", Outcome::success);
    EXPECT_EQ(runner.said, Words{"begin 2"});
}

TEST_F(RunQueueTest, StopOfATaskThatDoesNotWaitChangesNothing) {
    occupy();
    start("2");
    for (const char* task_id : {"1", "9"}) queue.stop(task_id);
    EXPECT_EQ(queue.waiting(), Words{"2"});
    EXPECT_EQ(state("1"), "new - -");
    EXPECT_EQ(runner.said, Words{});
}

TEST_F(RunQueueTest, RemovedTaskIsGoneFromStoreAndQueue) {
    occupy();
    start("1");
    start("2");
    queue.remove("1");
    queue.remove("9");
    EXPECT_EQ(queue.waiting(), Words{"2"});
    EXPECT_EQ(state("1"), "gone");
    EXPECT_EQ(store.list().size(), 3U);
    runner.end("4", Outcome::success);
    EXPECT_EQ(runner.said, (Words{"clean up 1", "begin 2"}));
}

TEST_F(RunQueueTest, ReloadKeepsThePlacesOfStoredTasks) {
    occupy();
    start("1");
    start("2");
    store.remove("1");
    queue.reload();
    EXPECT_EQ(queue.waiting(), Words{"2"});
    EXPECT_EQ(runner.said, Words{});
}

TEST_F(RunQueueTest, StartThatStopsWhatRunsTakesItsPlace) {
    start("1");
    start("2", false, true);
    start("3", true);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "cancel 1", "cancel 2"}));
    EXPECT_EQ(state("1"), "prepare_stop 1000 -");
    EXPECT_EQ(state("2"), "prepare_stop 1000 -");
    now = 1040;
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(state("3"), "wait - -");
    runner.end("2", Outcome::cancelled);
    EXPECT_EQ(runner.said.back(), "begin 3");
    EXPECT_EQ(state("1"), "cancel 1000 1040");
}

TEST_F(RunQueueTest, RunningTaskBeginsAnewWhenToldToTakeItsOwnPlace) {
    start("1");
    runner.connect("1");
    start("1", true);
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1"}));
    EXPECT_EQ(state("1"), "wait 1000 -");
    now = 1030;
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(runner.said.back(), "begin 1");
    EXPECT_EQ(state("1"), "prepare_start 1030 1030");
}

TEST_F(RunQueueTest, StartWhileTheRunBeforeItEndsIsNotLost) {
    start("1");
    start("2", false, true);
    queue.stop("1");
    EXPECT_TRUE(start("1"));
    EXPECT_EQ(queue.waiting(), Words{"1"});
    EXPECT_EQ(state("1"), "wait 1000 -");
    now = 1030;
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(queue.waiting(), Words{"1"});
    EXPECT_EQ(state("1"), "wait 1000 1030");
    now = 1040;
    runner.end("2", Outcome::success);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "cancel 1", "begin 1"}));
    EXPECT_EQ(state("1"), "prepare_start 1040 1030");
}

TEST_F(RunQueueTest, ParallelStartWhileTheRunBeforeItEndsWaitsForThatEnd) {
    start("1");
    queue.stop("1");
    start("1", false, true);
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1"}));
    start("2", false, true);
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1", "begin 2", "begin 1"}));
}

TEST_F(RunQueueTest, StopTakesBackAStartThatCameWhileTheRunEnds) {
    start("1");
    queue.stop("1");
    start("1");
    queue.stop("1");
    EXPECT_EQ(queue.waiting(), Words{});
    EXPECT_EQ(state("1"), "prepare_stop 1000 -");
    now = 1030;
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(state("1"), "cancel 1000 1030");
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1"}));
}

TEST_F(RunQueueTest, StartInThePlaceOfWhatRunsLeavesThoseThatWaitTheirPlaces) {
    start("1");
    queue.stop("1");
    start("1");
    start("2", true);
    EXPECT_EQ(queue.waiting(), (Words{"2", "1"}));
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1", "begin 2"}));
    EXPECT_EQ(state("1"), "wait 1000 1000");
}

TEST_F(RunQueueTest, StopOfARunningTaskIsToldOnce) {
    start("1");
    start("2", false, true);
    queue.stop("1");
    queue.stop("1");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "cancel 1"}));
    EXPECT_EQ(state("1"), "prepare_stop 1000 -");
    EXPECT_EQ(state("2"), "prepare_start 1000 -");
    runner.connect("1");
    EXPECT_EQ(state("1"), "prepare_stop 1000 -");
}

TEST_F(RunQueueTest, RunThatWasToldToStopMayStillEndOtherwise) {
    start("1");
    queue.stop("1");
    runner.end("1", Outcome::success);
    EXPECT_EQ(state("1"), "success 1000 1000");
}

TEST_F(RunQueueTest, StopWithoutTaskStopsAllThatRunAndNoneThatWaits) {
    start("1");
    start("2", false, true);
    start("3");
    queue.stop_running();
    queue.stop_running();
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "cancel 1", "cancel 2"}));
    EXPECT_EQ(state("1"), "prepare_stop 1000 -");
    EXPECT_EQ(state("3"), "wait - -");
    EXPECT_EQ(queue.waiting(), Words{"3"});
}

TEST_F(RunQueueTest, RemovedTaskIsStoppedAndItsEndTouchesNothing) {
    start("1");
    queue.remove("1");
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1", "clean up 1"}));
    EXPECT_EQ(state("1"), "gone");
    start("2");
    EXPECT_EQ(queue.waiting(), Words{"2"});
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(state("1"), "gone");
    EXPECT_EQ(runner.said.back(), "begin 2");
}

TEST_F(RunQueueTest, TaskAtRestOrOnTheWayThereIsCleanedUpWhenItIsRemoved) {
    queue.remove("1");
    queue.remove("1");
    EXPECT_EQ(runner.said, Words{"clean up 1"});
    start("2");
    queue.stop("2");
    queue.remove("2");
    EXPECT_EQ(runner.said, (Words{"clean up 1", "begin 2", "cancel 2", "clean up 2"}));
}

TEST_F(RunQueueTest, ReloadStopsTheRunOfATaskThatIsGone) {
    start("1");
    start("2", false, true);
    store.remove("1");
    queue.reload();
    queue.reload();
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "cancel 1"}));
    EXPECT_EQ(state("2"), "prepare_start 1000 -");
}

TEST_F(RunQueueTest, ScheduleDoesNotUndoAStop) {
    start("1");
    queue.stop("1");
    queue.start_by_schedule({{"1", standalone::RunCause::schedule}});
    EXPECT_EQ(queue.waiting(), Words{});
    runner.end("1", Outcome::cancelled);
    EXPECT_EQ(state("1"), "cancel 1000 1000");
}

}  // namespace
