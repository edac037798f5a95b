// What a new life of the daemon makes of the last one.
#include "services/backup_daemon/when/run_queue.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

using services::RunQueue;

namespace {

class RunQueueLivesTest : public RunQueueTest {
protected:
    NotingRunner next_runner;
    RunQueue next = make_queue(next_runner);
};

TEST_F(RunQueueLivesTest, NextLifeTakesTheQueueOver) {
    limit = 1;
    occupy();
    start("2");
    start("1", false, true);
    next.take_over();
    EXPECT_EQ(next_runner.said, Words{"resume 4"});
    EXPECT_EQ(next.waiting(), (Words{"2", "1"}));
    EXPECT_EQ(state("2"), "wait - -");
    limit = 2;
    next.look();
    EXPECT_EQ(next_runner.said.back(), "begin 1");
}

TEST_F(RunQueueLivesTest, NextLifeTakesUpWhatWasRunningBeforeWhatWaited) {
    start("1");
    start("3", false, true);
    runner.connect("3");
    start("2");
    now = 2000;
    next.take_over();
    EXPECT_EQ(next_runner.said, (Words{"resume 1", "resume 3"}));
    EXPECT_EQ(next.waiting(), Words{"2"});
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
    EXPECT_EQ(state("3"), "prepare_start 1000 -");
    next_runner.end("1", Outcome::success);
    next_runner.end("3", Outcome::success);
    EXPECT_EQ(state("3"), "success 1000 2000");
    EXPECT_EQ(next_runner.said.back(), "begin 2");
    EXPECT_EQ(state("2"), "prepare_start 2000 -");
}

TEST_F(RunQueueLivesTest, RunsThatFindNoRoomInTheNextLifeWaitInFront) {
    start("1");
    start("3", false, true);
    start("2");
    limit = 1;
    now = 2000;
    next.take_over();
    EXPECT_EQ(next_runner.said, Words{"resume 1"});
    EXPECT_EQ(next.waiting(), (Words{"3", "2"}));
    EXPECT_EQ(state("3"), "wait 1000 -");
    next.start({"3"});
    next.start_by_schedule({{"3", standalone::RunCause::schedule}});
    EXPECT_EQ(next.waiting(), (Words{"3", "2"}));
    next_runner.end("1", Outcome::success);
    EXPECT_EQ(next_runner.said.back(), "resume 3");
    EXPECT_EQ(state("3"), "prepare_start 1000 -");
}

TEST_F(RunQueueLivesTest, RunThatWaitsToGoOnMovesToTheFrontAndStillGoesOn) {
    for (const char* task_id : {"1", "2", "3"}) start(task_id, false, true);
    limit = 3;
    queue.look();
    limit = 1;
    next.take_over();
    EXPECT_EQ(next.waiting(), (Words{"2", "3"}));
    next.start({"3", true});
    EXPECT_EQ(next.waiting(), (Words{"3", "2"}));
    next_runner.end("1", Outcome::cancelled);
    EXPECT_EQ(next_runner.said.back(), "resume 3");
}

TEST_F(RunQueueLivesTest, RunThatWaitsToGoOnEndsWhenItIsStoppedAndBeginsAnewLater) {
    start("1");
    start("3", false, true);
    limit = 1;
    next.take_over();
    now = 2000;
    next.stop("3");
    EXPECT_EQ(state("3"), "cancel 1000 2000");
    next.start({"3"});
    next_runner.end("1", Outcome::success);
    EXPECT_EQ(next_runner.said, (Words{"resume 1", "begin 3"}));
    EXPECT_EQ(state("3"), "prepare_start 2000 2000");
}

TEST_F(RunQueueLivesTest, DeletedTaskDoesNotWaitToGoOn) {
    start("1");
    start("3", false, true);
    limit = 1;
    next.take_over();
    next.remove("3");
    next_runner.end("1", Outcome::success);
    EXPECT_EQ(next_runner.said, (Words{"resume 1", "clean up 3"}));
}

TEST_F(RunQueueLivesTest, NextLifeFinishesAStopThatWasUnderWay) {
    start("1");
    queue.stop("1");
    now = 2000;
    next.take_over();
    EXPECT_EQ(state("1"), "cancel 1000 2000");
    EXPECT_EQ(next_runner.said, Words{});
    EXPECT_EQ(next.waiting(), Words{});
}

TEST_F(RunQueueLivesTest, NextLifeBeginsAnewWhatWasToBeginAnew) {
    start("1");
    start("1", true);
    now = 2000;
    next.take_over();
    EXPECT_EQ(next_runner.said, Words{"begin 1"});
    EXPECT_EQ(state("1"), "prepare_start 2000 -");
}

TEST_F(RunQueueLivesTest, NextLifeLeavesWhatWasAtRest) {
    start("1");
    runner.end("1", Outcome::failed);
    now = 2000;
    next.take_over();
    EXPECT_EQ(state("1"), "failed 1000 1000");
    EXPECT_EQ(state("2"), "new - -");
    EXPECT_EQ(next_runner.said, Words{});
}

TEST_F(RunQueueLivesTest, TaskThatWaitsWithoutAPlaceWasBeingStopped) {
    store.set_state("1", {TASK_WAIT, 500, 600});
    next.take_over();
    EXPECT_EQ(state("1"), "cancel 500 1000");
    EXPECT_EQ(next_runner.said, Words{});
}

TEST_F(RunQueueLivesTest, RunThatStillHasItsPlaceIsTakenUpOnce) {
    store.set_state("2", {TASK_PREPARE_START, 500, {}});
    store.enqueue(standalone::QueueEnd::back, {"1", false});
    store.enqueue(standalone::QueueEnd::back, {"2", false});
    limit = 1;
    next.take_over();
    EXPECT_EQ(next_runner.said, Words{"resume 2"});
    EXPECT_EQ(next.waiting(), Words{"1"});
    EXPECT_EQ(state("1"), "wait - -");
}

}  // namespace
