// The history of runs: its rows from opening to closing, numbers, successes, failed files.
#include "services/backup_daemon/memory/run_history.h"

#include "platform/standalone/store/run_records.h"
#include "tests/services/backup_daemon/memory/memory_test.h"
#include "tests/services/backup_daemon/memory/query_plan.h"

namespace {

using namespace services;
using standalone::FailedFile;
using standalone::RunCause;
using standalone::RunOutcome;
using standalone::RunRecord;
using standalone::RunRecords;

class RunHistoryTest : public MemoryTest {
protected:
    void open(const std::string& task_id, long long now, RunCause cause = RunCause::hand) {
        history_.open(task_id, "Doors", cause, now);
    }

    void run(const std::string& task_id, long long started, RunOutcome outcome) {
        open(task_id, started);
        history_.close(task_id, {outcome, "", started + 10});
    }

    /// "3 success 110" of a task's newest run.
    std::string newest(const std::string& task_id) {
        const auto run = records_.newest(task_id);
        if (!run) return "none";
        std::string text = std::to_string(run->number);
        if (!run->outcome) return text + " open";
        return text + ' ' + std::string(outcome_text(*run->outcome)) + ' ' +
               std::to_string(*run->ended) + (run->reason.empty() ? "" : ": " + run->reason);
    }

    /// "1 at 110": the run's number, and when it ended.
    std::string last_success(const std::string& task_id) {
        const auto health = records_.health(task_id).value();
        return std::to_string(health.last_success) + " at " +
               std::to_string(health.success_time.value());
    }

    /// "2.1 1.1 ": tasks and numbers.
    std::string listed(const standalone::RunFilter& filter) {
        std::string text;
        records_.list(filter, [&](const RunRecord& run) {
            text += run.task_id + '.' + std::to_string(run.number) + ' ';
        });
        return text;
    }

    static RunAccount account(int failures) {
        RunAccount account;
        account.counts = {.planned = {10, 1000},
                          .sent = {7, 650},
                          .kept = {5, 50},
                          .failed = {failures, 30},
                          .removed = {2, 20},
                          .rate = 12.5};
        for (int number = 0; number < failures; ++number)
            account.failures.push_back({"file " + std::to_string(number), "is gone"});
        account.seen = 150;
        return account;
    }

    RunHistory history_{memory_.schedules};
    RunHistory notes_{memory_.runs};
    RunRecords records_{memory_.schedules};
};

TEST_F(RunHistoryTest, RunIsOpenFromItsBeginningToItsEnd) {
    EXPECT_EQ(newest("1"), "none");
    open("1", 100, RunCause::missed);
    const auto run = records_.newest("1");
    ASSERT_TRUE(run);
    EXPECT_EQ(run->task_name, "Doors");
    EXPECT_EQ(run->cause, RunCause::missed);
    EXPECT_EQ(run->started, 100);
    EXPECT_FALSE(run->ended);
    EXPECT_EQ(newest("1"), "1 open");
    history_.close("1", {RunOutcome::success, "", 200});
    EXPECT_EQ(newest("1"), "1 success 200");
    EXPECT_EQ(last_success("1"), "1 at 200");
}

TEST_F(RunHistoryTest, NumbersCountTheRunsOfATaskAndAreNeverGivenTwice) {
    run("1", 100, RunOutcome::failed);
    run("2", 110, RunOutcome::failed);
    run("1", 120, RunOutcome::success);
    EXPECT_EQ(newest("1"), "2 success 130");
    EXPECT_EQ(newest("2"), "1 failed 120");
    memory_.runs.run("DELETE FROM run");
    run("1", 140, RunOutcome::success);
    EXPECT_EQ(newest("1"), "3 success 150");
}

TEST_F(RunHistoryTest, OnlyASuccessIsTheLastSuccess) {
    run("1", 100, RunOutcome::success);
    for (const auto outcome :
         {RunOutcome::failed, RunOutcome::cancelled, RunOutcome::interrupted}) {
        run("1", 200, outcome);
        EXPECT_EQ(last_success("1"), "1 at 110");
    }
    open("1", 300);
    EXPECT_EQ(records_.health("1")->success_time, 110) << "not before it has ended";
    EXPECT_EQ(records_.newest_whole_of({"1"}).at("1").number, 2);
}

TEST_F(RunHistoryTest, RunThatFindsNothingIsToldFromOneThatNeverFoundAnything) {
    RunAccount some;
    some.counts.kept = {1, 10};
    std::vector<bool> told;
    for (const char* goal : {"a", "a", "b", "a", "a"}) {
        open("1", 100);
        memory_.runs.prepare("UPDATE run SET goal = ? WHERE outcome IS NULL").bind(1, goal).step();
        if (records_.newest("1")->number == 2) history_.note("1", some);
        if (records_.newest("1")->number == 5) history_.note("1", some);
        history_.close("1", {RunOutcome::success, "", 110});
        told.push_back(records_.lost_sight().contains("1"));
    }
    EXPECT_EQ(told, (std::vector<bool>{false, false, false, true, false}));
}

TEST_F(RunHistoryTest, RunThatDoesNotBeginLeavesNothingBehind) {
    run("1", 100, RunOutcome::success);
    open("1", 200);
    history_.withdraw("1");
    EXPECT_EQ(newest("1"), "1 success 110");
    open("1", 300);
    EXPECT_EQ(newest("1"), "2 open") << "no run had the number";
    open("1", 400);
    EXPECT_EQ(newest("1"), "3 open");
    EXPECT_EQ(count("run"), 2) << "of the one that never began nothing is left";
}

TEST_F(RunHistoryTest, ClosingWithoutAnOpenRunChangesNothing) {
    run("1", 100, RunOutcome::failed);
    history_.close("1", {RunOutcome::success, "", 500});
    history_.close("2", {RunOutcome::success, "", 500});
    EXPECT_EQ(newest("1"), "1 failed 110");
    EXPECT_FALSE(records_.health("1")->success_time);
    EXPECT_FALSE(records_.health("2"));
}

TEST_F(RunHistoryTest, WhatIsNotedIsReadAgain) {
    open("1", 100);
    notes_.note("1", account(2));
    const auto run = records_.newest("1");
    EXPECT_EQ(run->counts, account(2).counts);
    EXPECT_EQ(run->seen, 150);
    EXPECT_EQ(records_.failures(*run), account(2).failures);
    ASSERT_EQ(history_.open_runs().size(), 1U);
    EXPECT_EQ(history_.open_runs()[0].seen, 150);
}

TEST_F(RunHistoryTest, FailedFilesAreAddedBehindThoseThatAreThere) {
    open("1", 100);
    for (const int failures : {1, 1, 3}) notes_.note("1", account(failures));
    EXPECT_EQ(records_.failures(*records_.newest("1")), account(3).failures);
    history_.close("1", {RunOutcome::failed, "", 200});
    open("1", 300);
    EXPECT_TRUE(records_.failures(*records_.newest("1")).empty());
}

TEST_F(RunHistoryTest, WhatARunWaitedForIsNoReasonOfItsSuccess) {
    open("1", 100);
    RunAccount waiting = account(0);
    waiting.reason = "connection refused";
    notes_.note("1", waiting);
    EXPECT_EQ(records_.newest("1")->reason, "connection refused");
    history_.close("1", {RunOutcome::success, "", 200});
    EXPECT_EQ(newest("1"), "1 success 200");
}

TEST_F(RunHistoryTest, ReasonIsThatOfTheEndOrElseWhatWasNoted) {
    RunAccount failed = account(0);
    failed.reason = "share is full";
    open("1", 100);
    notes_.note("1", failed);
    history_.close("1", {RunOutcome::failed, "", 200});
    EXPECT_EQ(newest("1"), "1 failed 200: share is full");
    open("1", 300);
    notes_.note("1", failed);
    history_.close("1", {RunOutcome::cancelled, "stopped by hand", 400});
    EXPECT_EQ(newest("1"), "2 cancelled 400: stopped by hand");
}

/// The store may have refused the last note, and taken the end before it.
TEST_F(RunHistoryTest, LastNoteMayComeBehindTheEnd) {
    open("1", 100);
    history_.close("1", {RunOutcome::cancelled, "stopped by hand", 200});
    notes_.note("1", account(1));
    EXPECT_EQ(newest("1"), "1 cancelled 200: stopped by hand");
    EXPECT_EQ(records_.newest("1")->counts, account(1).counts);
    open("2", 100);
    history_.close("2", {RunOutcome::failed, "", 200});
    RunAccount failed = account(0);
    failed.reason = "share is full";
    notes_.note("2", failed);
    EXPECT_EQ(newest("2"), "1 failed 200: share is full");
}

TEST_F(RunHistoryTest, ListHasTheNewestFirstOfAllTasksOfOneOrOfFailedRuns) {
    run("1", 100, RunOutcome::success);
    run("2", 200, RunOutcome::failed);
    run("1", 300, RunOutcome::failed);
    EXPECT_EQ(listed({}), "1.2 2.1 1.1 ");
    EXPECT_EQ(listed({.task_id = "1"}), "1.2 1.1 ");
    EXPECT_EQ(listed({.task_id = "1", .only_failed = true}), "1.2 ");
    EXPECT_EQ(listed({.task_id = "01"}), "");
    EXPECT_EQ(listed({.task_id = "none"}), "");
}

TEST_F(RunHistoryTest, ListIsOfTheNewestOnlyWhenSoManyAreWanted) {
    for (const long long started : {100, 200, 300}) run("1", started, RunOutcome::success);
    run("2", 150, RunOutcome::success);
    EXPECT_EQ(listed({.most = 2}), "1.3 1.2 ");
    EXPECT_EQ(listed({.task_id = "1", .most = 2}), "1.3 1.2 ");
    EXPECT_EQ(listed({.task_id = "2", .most = 2}), "2.1 ");
}

TEST_F(RunHistoryTest, RunsOfATaskAreListedAsTheyAreNumbered) {
    run("1", 500, RunOutcome::success);
    run("1", 100, RunOutcome::success);
    EXPECT_EQ(listed({.task_id = "1"}), "1.2 1.1 ") << "the clock was set back in between";
}

TEST_F(RunHistoryTest, NothingIsSortedForAList) {
    for (const char* task_id : {"", "1"})
        EXPECT_EQ(plan_of(memory_.schedules, [&] { listed({.task_id = task_id, .most = 2}); }),
                  *task_id ? "SEARCH run USING PRIMARY KEY (taskID=?)\n"
                           : "SCAN run USING INDEX run_by_start\n");
}

TEST_F(RunHistoryTest, WhatTheStoreRefusesIsNotThereInPart) {
    memory_.schedules.limit_waiting(std::chrono::milliseconds(1));
    open("1", 100);
    {
        standalone::Database other(memory_database_path(), standalone::Database::Access::writing);
        const standalone::Transaction writer(other);
        EXPECT_THROW(open("2", 100), standalone::DatabaseError);
        EXPECT_THROW(history_.close("1", {RunOutcome::success, "", 200}),
                     standalone::DatabaseError);
    }
    EXPECT_EQ(newest("1"), "1 open");
    EXPECT_FALSE(records_.health("1")->success_time);
    EXPECT_FALSE(records_.health("2"));
}

}  // namespace
