// What the queue has the history say of runs: why they began, how they ended, and what a killed
// daemon left open.
#include <sqlite3.h>

#include "platform/standalone/store/run_records.h"
#include "platform/standalone/store/task_goal.h"
#include "services/backup_daemon/when/run_queue.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

namespace {

using standalone::Database;
using standalone::RunCause;
using standalone::RunRecord;

class RunQueueHistoryTest : public RunQueueTest {
protected:
    /// "2 by hand 1000: cancelled 1010 stopped by hand" of a task's newest run.
    std::string newest(const std::string& task_id) {
        const auto run = standalone::RunRecords(memory.runs).newest(task_id);
        if (!run) return "none";
        std::string text = std::to_string(run->number) + ' ' + std::string(cause_text(run->cause)) +
                           ' ' + std::to_string(run->started) + ": ";
        if (!run->outcome) return text + "open";
        text += std::string(outcome_text(*run->outcome)) + ' ' + std::to_string(*run->ended);
        return run->reason.empty() ? text : text + ' ' + run->reason;
    }

    /// Another life of the daemon, on what this one has stored.
    void begin_next_life() {
        next_runner.live.clear();
        now += 100;
        services::RunQueue next = make_queue(next_runner);
        next.take_over();
    }

    /// No other connection can write to the daemon's database until the lock is gone.
    std::unique_ptr<standalone::Transaction> lock() {
        memory.runs.limit_waiting(std::chrono::milliseconds(1));
        memory.schedules.limit_waiting(std::chrono::milliseconds(1));
        return std::make_unique<standalone::Transaction>(other);
    }

    Database other{services::memory_database_path(), Database::Access::writing};
    NotingRunner next_runner;
};

TEST_F(RunQueueHistoryTest, RowIsOpenBeforeTheRunBegins) {
    std::string seen;
    runner.when_begun = [&] { seen = newest("1"); };
    start("1");
    EXPECT_EQ(seen, "1 by hand 1000: open");
    EXPECT_EQ(standalone::RunRecords(memory.runs).newest("1")->task_name, "one");
}

/// It is told again then, and sends nothing before.
TEST_F(RunQueueHistoryTest, RunWhoseRowIsNotOnDiskIsNotConnected) {
    start("1");
    auto locked = lock();
    EXPECT_THROW(runner.connect("1"), standalone::DatabaseError);
    EXPECT_EQ(state("1"), "prepare_start 1000 -");
    locked.reset();
    now = 1005;
    runner.connect("1");
    EXPECT_EQ(state("1"), "running 1000 -");
    EXPECT_EQ(standalone::RunRecords(memory.runs).newest("1")->seen, 1005);
}

/// Somebody edits it while it runs, or it is edited between two runs.
TEST_F(RunQueueHistoryTest, SuccessIsOneOfTheTaskAsItsRunHasReadIt) {
    const auto last_goal = [&] {
        return standalone::RunRecords(memory.runs).health("1")->success_goal;
    };
    const auto set_path = [&](const char* path) {
        EXPECT_EQ(store.set_fields("1", {{"destPath", path}}), 0);
    };
    set_path("/a");
    const std::string before = standalone::task_goal(*store.find("1"));
    start("1");
    set_path("/b");
    runner.connect("1");
    set_path("/c");
    runner.end("1", Outcome::success);
    EXPECT_EQ(last_goal(), before);
    start("1");
    runner.connect("1");
    EXPECT_EQ(last_goal(), before) << "not before it has ended";
    runner.end("1", Outcome::success);
    EXPECT_EQ(last_goal(), standalone::task_goal(*store.find("1")));
    start("1");
    runner.end("1", Outcome::success);
    EXPECT_EQ(last_goal(), "") << "who never connected has seen no share";
}

TEST_F(RunQueueHistoryTest, EachOutcomeIsClosedAsTheRunEnded) {
    const std::vector<std::pair<Outcome, std::string>> outcomes = {{Outcome::success, "success"},
                                                                   {Outcome::failed, "failed"}};
    int number = 0;
    for (const auto& [outcome, word] : outcomes) {
        start("1");
        now += 5;
        runner.end("1", outcome);
        EXPECT_EQ(newest("1"), std::to_string(++number) + " by hand " + std::to_string(now - 5) +
                                   ": " + word + ' ' + std::to_string(now));
    }
}

TEST_F(RunQueueHistoryTest, CauseIsRememberedWhileTheTaskWaits) {
    occupy();
    queue.start_by_schedule({{"1", RunCause::schedule}});
    queue.start_by_schedule({{"2", RunCause::missed}});
    start("1");
    runner.end("4", Outcome::success);
    EXPECT_EQ(newest("1"), "1 schedule 1000: open");
    EXPECT_EQ(newest("2"), "1 missed 1000: open");
}

TEST_F(RunQueueHistoryTest, CancelledRunSaysWhy) {
    const auto ended = [this](const std::string& task_id) {
        runner.end(task_id, Outcome::cancelled);
        return newest(task_id);
    };
    start("1");
    queue.stop("1");
    EXPECT_EQ(ended("1"), "1 by hand 1000: cancelled 1000 stopped by hand");
    start("1");
    queue.stop_running();
    EXPECT_EQ(ended("1"), "2 by hand 1000: cancelled 1000 stopped by hand");
    start("1");
    start("2", true);
    EXPECT_EQ(ended("1"), "3 by hand 1000: cancelled 1000 made way for task 2");
    start("2", true);
    EXPECT_EQ(ended("2"), "2 by hand 1000: open") << "it began anew";
    queue.remove("2");
    EXPECT_EQ(ended("2"), "2 by hand 1000: cancelled 1000 its task was deleted");
}

TEST_F(RunQueueHistoryTest, RunThatSucceedsThoughItWasToldToEndIsASuccess) {
    start("1");
    queue.stop("1");
    runner.end("1", Outcome::success);
    EXPECT_EQ(newest("1"), "1 by hand 1000: success 1000");
}

TEST_F(RunQueueHistoryTest, RunThatCannotBeginSaysWhy) {
    runner.refuses = true;
    start("1");
    queue.look();
    EXPECT_EQ(newest("1"), "1 by hand 1000: failed 1000 no process can be made");
}

TEST_F(RunQueueHistoryTest, RunThatIsTakenUpAgainIsTheNextOne) {
    start("1");
    runner.ready = false;
    runner.end("1", Outcome::interrupted);
    EXPECT_EQ(newest("1"), "1 by hand 1000: interrupted 1000");
    runner.ready = true;
    queue.look();
    EXPECT_EQ(newest("1"), "2 resumed 1000: open");
}

TEST_F(RunQueueHistoryTest, TaskWaitsWhileItsRowCannotBeWritten) {
    auto locked = lock();
    testing::internal::CaptureStderr();
    EXPECT_TRUE(start("1"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "no task can be begun: database is locked\n");
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(state("1"), "wait - -");
    locked.reset();
    queue.look();
    EXPECT_EQ(runner.said, Words{"begin 1"});
    EXPECT_EQ(newest("1"), "1 by hand 1000: open");
}

TEST_F(RunQueueHistoryTest, EndThatTheHistoryRefusesIsTheTasksAtOnceAndTheHistorysLater) {
    start("1");
    start("2");
    auto locked = lock();
    testing::internal::CaptureStderr();
    runner.end("1", Outcome::success);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "the end of task 1 is not in the history yet: database is locked\n");
    EXPECT_EQ(state("1"), "success 1000 1000");
    EXPECT_EQ(newest("1"), "1 by hand 1000: open");
    EXPECT_EQ(runner.said, Words{"begin 1"}) << "no other run begins before";
    now = 1500;
    locked.reset();
    queue.look();
    EXPECT_EQ(newest("1"), "1 by hand 1000: success 1000");
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
}

TEST_F(RunQueueHistoryTest, EndThatTheTaskLearnsOfLateIsWhenTheRunEnded) {
    database.limit_waiting(std::chrono::milliseconds(1));
    start("1");
    {
        Database holder(standalone::config_database_path(), Database::Access::writing);
        const standalone::Transaction writer(holder);
        now = 1010;
        testing::internal::CaptureStderr();
        runner.end("1", Outcome::success);
        EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    }
    now = 4600;
    queue.look();
    EXPECT_EQ(state("1"), "success 1000 1010");
    EXPECT_EQ(newest("1"), "1 by hand 1000: success 1010");
}

TEST_F(RunQueueHistoryTest, RunThatIsNotStoredAsBegunHasNoRow) {
    database.run(
        "CREATE TRIGGER refuse BEFORE DELETE ON queue BEGIN SELECT RAISE(ABORT, 'full'); END");
    testing::internal::CaptureStderr();
    start("1");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(newest("1"), "none");
}

TEST_F(RunQueueHistoryTest, RunWhoseBeginningIsTakenBackInTheVeryEndHasNoRow) {
    int commits = 1;  // of the place, and then none
    const auto refuse = [](void* left) { return (*static_cast<int*>(left))-- > 0 ? 0 : 1; };
    sqlite3_commit_hook(database.handle(), refuse, &commits);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(start("1"));
    testing::internal::GetCapturedStderr();
    sqlite3_commit_hook(database.handle(), nullptr, nullptr);
    EXPECT_LT(commits, 0);
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(newest("1"), "none");
    queue.look();
    EXPECT_EQ(newest("1"), "1 by hand 1000: open");
}

/// Its task is deleted meanwhile, so no other row takes its place.
TEST_F(RunQueueHistoryTest, RowThatCannotBeTakenBackGoesWithTheNextLook) {
    std::unique_ptr<standalone::Transaction> locked;
    std::function<bool()> refuse = [&, commits = 0]() mutable {
        if (++commits == 1) return false;  // of the place
        locked = lock();
        return true;
    };
    const auto hook = [](void* asked) {
        return (*static_cast<std::function<bool()>*>(asked))() ? 1 : 0;
    };
    sqlite3_commit_hook(database.handle(), hook, &refuse);
    testing::internal::CaptureStderr();
    EXPECT_TRUE(start("1"));
    sqlite3_commit_hook(database.handle(), nullptr, nullptr);
    queue.remove("1");
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(newest("1"), "1 by hand 1000: open");
    locked.reset();
    queue.look();
    EXPECT_EQ(newest("1"), "none");
    EXPECT_EQ(runner.said, Words{"clean up 1"});
}

TEST_F(RunQueueHistoryTest, KilledDaemonsRunWasInterruptedAndGoesOnAsTheNextOne) {
    start("1");
    services::RunAccount account;
    account.seen = 1042;
    services::RunHistory(memory.runs).note("1", account);
    begin_next_life();
    EXPECT_EQ(newest("1"), "2 resumed 1100: open");
    const auto first = standalone::RunRecords(memory.runs).find("1", 1).value();
    EXPECT_EQ(first.outcome, Outcome::interrupted);
    EXPECT_EQ(first.ended, 1042);
    EXPECT_EQ(first.reason, "the backup daemon ended in the middle of the run");
    next_runner.ready = false;
    begin_next_life();
    next_runner.ready = true;
    begin_next_life();
    EXPECT_EQ(newest("1"), "3 resumed 1300: open") << "a place in the queue remembers it";
}

/// Between the two databases the daemon may be killed: the task's state is stored first.
TEST_F(RunQueueHistoryTest, EndThatOnlyTheTaskKnowsOfIsTheRows) {
    const std::vector<std::pair<Outcome, std::string>> outcomes = {
        {Outcome::success, "success 1000"}, {Outcome::failed, "failed 1000"}};
    for (const auto& [outcome, words] : outcomes) {
        start("1");
        auto locked = lock();
        testing::internal::CaptureStderr();
        runner.end("1", outcome);
        testing::internal::GetCapturedStderr();
        locked.reset();
        services::RunQueue next = make_queue(next_runner);
        next.take_over();
        EXPECT_TRUE(newest("1").ends_with(": " + words)) << newest("1");
        queue.look();
    }
}

TEST_F(RunQueueHistoryTest, SuccessOfAnEarlierRunIsNotTheOpenRows) {
    start("1");
    runner.end("1", Outcome::success);
    history.open("1", "one", RunCause::hand, 1001);
    begin_next_life();
    EXPECT_EQ(newest("1"),
              "2 by hand 1001: interrupted 1001 the backup daemon ended in the middle of the run");
}

TEST_F(RunQueueHistoryTest, RunThatWasBeingStoppedOrWhoseTaskIsGoneWasCancelled) {
    start("1");
    queue.stop("1");
    begin_next_life();
    EXPECT_EQ(newest("1"), "1 by hand 1000: cancelled 1000 stopped");
    start("2", false, true);
    queue.remove("2");
    begin_next_life();
    EXPECT_EQ(newest("2"), "1 by hand 1100: cancelled 1100 its task was deleted");
}

/// The store does not tell a stop by hand from it.
TEST_F(RunQueueHistoryTest, RunThatMadeWayWhenTheDaemonEndedIsNotToldAsStoppedByHand) {
    start("1");
    start("2", true);
    begin_next_life();
    EXPECT_EQ(standalone::RunRecords(memory.runs).find("1", 1)->reason, "stopped");
}

}  // namespace
