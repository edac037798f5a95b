// What becomes of inputs that the store refuses, in part or wholly, and of runs that cannot begin.
#include <sqlite3.h>

#include "platform/standalone/store/event_store.h"
#include "services/backup_daemon/tell/run_events.h"
#include "services/backup_daemon/when/run_queue.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

using standalone::DatabaseError;

namespace {

class RunQueueStoreTest : public RunQueueTest {
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
};

TEST_F(RunQueueStoreTest, StartThatStopsWhatRunsIsStoredAllOrNothing) {
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

TEST_F(RunQueueStoreTest, BeginIsStoredAllOrNothingAndComesLater) {
    refuse("DELETE ON queue");
    EXPECT_THROW(start("1"), DatabaseError);
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(state("1"), "wait - -");
    EXPECT_EQ(queue.waiting(), Words{"1"});
    refuse_nothing();
    queue.look();
    EXPECT_EQ(runner.said, Words{"begin 1"});
}

TEST_F(RunQueueStoreTest, StopThatCannotBeStoredHasNotHappened) {
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

TEST_F(RunQueueStoreTest, InputThatChangesNothingWaitsForNoOtherWriter) {
    occupy();
    start("1");
    database.run("PRAGMA busy_timeout=0");
    standalone::Database other(standalone::config_database_path(),
                               standalone::Database::Access::writing);
    const standalone::Transaction writer(other);
    queue.look();
    start("1");
    queue.stop("2");
    queue.start_by_schedule("4");
    EXPECT_THROW(queue.stop("1"), DatabaseError);
}

TEST_F(RunQueueStoreTest, WhatIsTakenBackInTheVeryEndHasNotHappened) {
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

TEST_F(RunQueueStoreTest, EndThatCannotBeStoredIsStoredLater) {
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

TEST_F(RunQueueStoreTest, StartAfterAnEndThatCouldNotBeStoredIsNotTakenForOneOfARunningTask) {
    start("1");
    refuse("UPDATE OF status ON task");
    EXPECT_THROW(runner.end("1", Outcome::failed), DatabaseError);
    refuse_nothing();
    start("1");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 1"}));
}

TEST_F(RunQueueStoreTest, RunThatCannotBeginHasFailedAndOthersFollow) {
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
