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

    // Hooks after which nothing can be read.

    static int count_commit(void* test) {
        --static_cast<RunQueueStoreTest*>(test)->readable_for;
        return 0;
    }
    static int allow(void* test, int action, const char*, const char*, const char*, const char*) {
        const bool refused =
            action == SQLITE_READ && static_cast<RunQueueStoreTest*>(test)->readable_for == 0;
        return refused ? SQLITE_DENY : SQLITE_OK;
    }

    int readable_for = 0;  ///< so many more commits

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

/// Whoever has asked for the start has got it: it is stored.
TEST_F(RunQueueStoreTest, BeginIsStoredAllOrNothingAndComesLater) {
    refuse("DELETE ON queue");
    testing::internal::CaptureStderr();
    EXPECT_TRUE(start("1"));
    queue.look();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "no task can be begun: full\n");
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
    queue.start_by_schedule({{"4", standalone::RunCause::schedule}});
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
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(runner.end("1", Outcome::failed));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "the end of task 1 is not stored yet: full\n");
    EXPECT_THROW(queue.look(), DatabaseError);
    EXPECT_THROW(start("3"), DatabaseError);
    EXPECT_EQ(state("3"), "new - -");
    EXPECT_EQ(runner.said, Words{"begin 1"});
    refuse_nothing();
    queue.look();
    EXPECT_EQ(state("1"), "failed 1000 1000");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
}

TEST_F(RunQueueStoreTest, StartAfterAnEndThatCouldNotBeStoredIsNotTakenForOneOfARunningTask) {
    start("1");
    refuse("UPDATE OF status ON task");
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(runner.end("1", Outcome::failed));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "the end of task 1 is not stored yet: full\n");
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

TEST_F(RunQueueStoreTest, RunThatIsStoredAsBegunBeginsThoughNothingCanBeReadAnyMore) {
    readable_for = 2;  // commits: the place, then the beginning
    sqlite3_commit_hook(database.handle(), count_commit, this);
    sqlite3_set_authorizer(database.handle(), allow, this);
    EXPECT_TRUE(start("1"));
    sqlite3_set_authorizer(database.handle(), nullptr, nullptr);
    sqlite3_commit_hook(database.handle(), nullptr, nullptr);
    EXPECT_EQ(readable_for, 0);
    EXPECT_EQ(runner.said, Words{"begin 1"});
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
}

TEST_F(RunQueueStoreTest, RunThatCannotBeCancelledGoesOnToItsEndAndTheOthersAreCancelled) {
    start("1");
    start("2", false, true);
    runner.refuses = true;
    testing::internal::CaptureStderr();
    queue.stop_running();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "the run of task 1 cannot be cancelled: no time can be had\n"
              "the run of task 2 cannot be cancelled: no time can be had\n");
    runner.refuses = false;
    runner.end("1", Outcome::success);
    EXPECT_EQ(state("1"), "success 1000 1000");
}

TEST_F(RunQueueStoreTest, NothingBeginsBeforeRunsCanGetAnywhere) {
    runner.ready = false;
    EXPECT_TRUE(start("1"));
    queue.look();
    EXPECT_EQ(queue.waiting(), Words{"1"});
    EXPECT_EQ(state("1"), "wait - -");
    runner.ready = true;
    queue.look();
    EXPECT_EQ(runner.said, Words{"begin 1"});
}

TEST_F(RunQueueStoreTest, ConnectionThatCannotBeStoredIsToldAgain) {
    start("1");
    refuse("UPDATE OF status ON task");
    EXPECT_THROW(runner.connect("1"), DatabaseError);
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
    refuse_nothing();
    runner.connect("1");
    runner.connect("1");
    EXPECT_EQ(state("1"), "running 1000 -");
}

/// How a run fares is not how another one begins.
TEST_F(RunQueueStoreTest, ConnectionIsStoredThoughNothingElseCanBegin) {
    start("1");
    start("2", false, true);
    start("3", false, true);
    limit = 3;
    refuse("DELETE ON queue");
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(runner.connect("1"));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(state("1"), "running 1000 -");
}

TEST_F(RunQueueStoreTest, InterruptedRunWaitsInFrontAndIsTakenUpWhenRunsGetAnywhereAgain) {
    start("1");
    runner.connect("1");
    start("2");
    runner.ready = false;
    now = 2000;
    runner.end("1", Outcome::interrupted);
    EXPECT_EQ(state("1"), "wait 1000 -");
    EXPECT_EQ(queue.waiting(), (Words{"1", "2"}));
    runner.ready = true;
    queue.look();
    EXPECT_EQ(runner.said, (Words{"begin 1", "resume 1"}));
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
}

TEST_F(RunQueueStoreTest, InterruptionThatCannotBeStoredIsStoredLater) {
    start("1");
    refuse("UPDATE OF status ON task");
    testing::internal::CaptureStderr();
    runner.end("1", Outcome::interrupted);
    testing::internal::GetCapturedStderr();
    EXPECT_THROW(queue.look(), DatabaseError);
    EXPECT_EQ(runner.said, Words{"begin 1"});
    refuse_nothing();
    queue.look();
    EXPECT_EQ(runner.said, (Words{"begin 1", "resume 1"}));
}

TEST_F(RunQueueStoreTest, RunsThatWereInterruptedSideBySideGoOnSideBySide) {
    start("1");
    start("2", false, true);
    runner.ready = false;
    runner.end("1", Outcome::interrupted);
    runner.end("2", Outcome::interrupted);
    runner.ready = true;
    queue.look();
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "resume 2", "resume 1"}));
}

TEST_F(RunQueueStoreTest, RunThatIsInterruptedWhileItIsStoppedHasEnded) {
    start("1");
    queue.stop("1");
    now = 2000;
    runner.end("1", Outcome::interrupted);
    EXPECT_EQ(state("1"), "cancel 1000 2000");
    start("2");
    start("2", true);
    runner.end("2", Outcome::interrupted);
    EXPECT_EQ(runner.said.back(), "begin 2") << "anew";
}

TEST_F(RunQueueStoreTest, InterruptedRunOfADeletedTaskIsGone) {
    start("1");
    queue.remove("1");
    runner.end("1", Outcome::interrupted);
    queue.look();
    EXPECT_EQ(state("1"), "gone");
    EXPECT_EQ(runner.said, (Words{"begin 1", "cancel 1", "clean up 1"}));
}

/// By somebody else than the daemon, between the look at the queue and the beginning.
TEST_F(RunQueueStoreTest, TaskThatIsGoneWhenItIsToBeginLeavesNothingBehind) {
    database.run(
        "CREATE TRIGGER hasten AFTER UPDATE OF status ON task WHEN new.status = 3 "
        "BEGIN DELETE FROM task WHERE taskID = 1; END");
    EXPECT_TRUE(start("1"));
    queue.look();
    EXPECT_EQ(state("1"), "gone");
    EXPECT_EQ(runner.said, Words{});
    start("2");
    EXPECT_EQ(runner.said, Words{"begin 2"});
}

}  // namespace
