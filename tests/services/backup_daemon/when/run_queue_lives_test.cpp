// What a new life of the daemon makes of the last one, and what becomes of inputs that fail.
#include <sqlite3.h>

#include "platform/standalone/store/event_store.h"
#include "services/backup_daemon/tell/run_events.h"
#include "services/backup_daemon/when/run_queue.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

using services::RunQueue;
using standalone::DatabaseError;

namespace {

class RunQueueLivesTest : public RunQueueTest {
protected:
    /// The store refuses what a statement begins with, "UPDATE OF endTime ON task".
    void refuse(const std::string& what) {
        database.run(
            ("CREATE TRIGGER refuse BEFORE " + what + " BEGIN SELECT RAISE(ABORT, 'full'); END")
                .c_str());
    }
    void refuse_nothing() { database.run("DROP TRIGGER refuse"); }

    /// All that is stored.
    Words stored() {
        Words lines;
        for (const auto& task : store.list()) lines.push_back(state(task.taskID));
        for (const auto& place : store.queue())
            lines.push_back(place.task_id + (place.parallel ? " parallel" : ""));
        return lines;
    }

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
    next.start_by_schedule("3");
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
    EXPECT_EQ(next_runner.said, Words{"resume 1"});
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
    store.enqueue("1", standalone::QueueEnd::back, false);
    store.enqueue("2", standalone::QueueEnd::back, false);
    limit = 1;
    next.take_over();
    EXPECT_EQ(next_runner.said, Words{"resume 2"});
    EXPECT_EQ(next.waiting(), Words{"1"});
    EXPECT_EQ(state("1"), "wait - -");
}

TEST_F(RunQueueLivesTest, StartThatStopsWhatRunsIsStoredAllOrNothing) {
    start("1");
    start("2", false, true);
    const Words before = stored();
    refuse("INSERT ON queue");
    EXPECT_THROW(start("3", true), DatabaseError);
    EXPECT_EQ(stored(), before);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    refuse_nothing();
    queue.stop("1");
    EXPECT_EQ(runner.said.back(), "cancel 1");
}

TEST_F(RunQueueLivesTest, BeginIsStoredAllOrNothingAndComesLater) {
    refuse("DELETE ON queue");
    EXPECT_THROW(start("1"), DatabaseError);
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(state("1"), "wait - -");
    EXPECT_EQ(queue.waiting(), Words{"1"});
    refuse_nothing();
    queue.look();
    EXPECT_EQ(runner.said, Words{"begin 1"});
}

TEST_F(RunQueueLivesTest, StopThatCannotBeStoredHasNotHappened) {
    occupy();
    start("1");
    refuse("UPDATE OF status ON task");
    EXPECT_THROW(queue.stop("1"), DatabaseError);
    EXPECT_THROW(queue.stop("4"), DatabaseError);
    EXPECT_THROW(queue.stop_running(), DatabaseError);
    EXPECT_EQ(queue.waiting(), Words{"1"});
    EXPECT_EQ(runner.said, Words{});
    refuse_nothing();
    queue.stop("4");
    EXPECT_EQ(runner.said, Words{"cancel 4"});
}

TEST_F(RunQueueLivesTest, WhatIsTakenBackInTheVeryEndHasNotHappened) {
    occupy();
    sqlite3_commit_hook(
        database.handle(), [](void*) { return 1; }, nullptr);
    EXPECT_THROW(queue.stop("4"), DatabaseError);
    EXPECT_THROW(start("1"), DatabaseError);
    sqlite3_commit_hook(database.handle(), nullptr, nullptr);
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(state("4"), "prepare_start 1000 -");
    start("1");
    queue.stop("4");
    EXPECT_EQ(queue.waiting(), Words{"1"});
    EXPECT_EQ(runner.said, Words{"cancel 4"});
}

TEST_F(RunQueueLivesTest, EndThatCannotBeStoredIsStoredLater) {
    start("1");
    start("2");
    refuse("UPDATE OF status ON task");
    EXPECT_THROW(runner.end("1", Outcome::failed), DatabaseError);
    EXPECT_THROW(queue.look(), DatabaseError);
    EXPECT_EQ(runner.said, Words{"begin 1"});
    refuse_nothing();
    queue.look();
    EXPECT_EQ(state("1"), "failed 1000 1000");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
}

TEST_F(RunQueueLivesTest, StartAfterAnEndThatCouldNotBeStoredIsNotTakenForOneOfARunningTask) {
    start("1");
    refuse("UPDATE OF status ON task");
    EXPECT_THROW(runner.end("1", Outcome::failed), DatabaseError);
    refuse_nothing();
    start("1");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 1"}));
}

TEST_F(RunQueueLivesTest, RunThatCannotBeginHasFailedAndOthersFollow) {
    runner.refuses = true;
    EXPECT_TRUE(start("1"));
    runner.refuses = false;
    start("2");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    EXPECT_EQ(state("1"), "failed 1000 1000");
    EXPECT_EQ(state("2"), "prepare_start 1000 -");
    standalone::Database events(standalone::event_database_path(),
                                standalone::Database::Access::reading);
    const auto newest = standalone::EventStore(events).newest({}, 10);
    ASSERT_EQ(newest.size(), 1U);
    EXPECT_EQ(newest[0].event_id, services::RUN_FAILED);
    EXPECT_EQ(newest[0].arguments, (Words{"Recording Backup", "one", "no process can be made"}));
}

}  // namespace
