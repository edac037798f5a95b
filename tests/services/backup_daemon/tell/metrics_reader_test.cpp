// What the databases tell monitoring systems: of stored tasks and their places, nothing else.
#include "services/backup_daemon/tell/metrics_reader.h"

#include "services/backup_daemon/memory/run_history.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using standalone::RunCause;
using standalone::RunOutcome;

class MetricsReaderTest : public MemoryTest {
protected:
    void add_task(const std::string& task_id, bool enabled = true) {
        TDataBackupConfig task;
        task.taskID = task_id;
        task.taskName = "task " + task_id;
        task.enable = enabled;
        tasks_.push_back(task);
    }

    void run(const std::string& task_id, RunOutcome outcome, long long ended) {
        history_.open(task_id, "Doors", RunCause::hand, ended - 10);
        history_.close(task_id, {outcome, "", ended});
    }

    void set_overdue(const std::string& task_id, const std::string& from) {
        memory_.schedules.run(("INSERT INTO task_health (taskID, overdue_from) VALUES (" + task_id +
                               ", " + from + ")")
                                  .c_str());
    }

    void add_room(const std::string& share) {
        memory_.schedules
            .prepare(
                "INSERT INTO share_room (destination, free, total, time) VALUES (?, 10, 100, 1)")
            .bind(1, share)
            .step();
    }

    TaskMetrics first(long long now = 1000) { return reader_.read(tasks_, {}, now).tasks.at(0); }

    std::list<TDataBackupConfig> tasks_;
    RunHistory history_{memory_.runs};
    MetricsReader reader_{memory_.runs};
};

TEST_F(MetricsReaderTest, TellsNothingOfATaskThatIsNewButThatItIsThere) {
    add_task("1");
    EXPECT_EQ(first().name, "task 1");
    EXPECT_TRUE(first().enabled);
    EXPECT_FALSE(first().overdue);
    EXPECT_FALSE(first().success_time);
    EXPECT_FALSE(first().last_outcome);
    EXPECT_EQ(first().total, RunTotal());
}

TEST_F(MetricsReaderTest, TellsTheNewestRunThatHasEndedAndTheLastSuccess) {
    add_task("1");
    run("1", RunOutcome::success, 500);
    run("1", RunOutcome::failed, 600);
    history_.open("1", "Doors", RunCause::hand, 700);
    EXPECT_EQ(first().success_time, 500);
    EXPECT_EQ(first().last_outcome, RunOutcome::failed);
    EXPECT_EQ(first().total.runs, (std::array<long long, 4>{1, 1, 0, 0}));
}

TEST_F(MetricsReaderTest, AFailureStaysOneUntilARunSucceeds) {
    add_task("1");
    EXPECT_FALSE(first().failed);
    run("1", RunOutcome::failed, 500);
    EXPECT_TRUE(first().failed);
    run("1", RunOutcome::cancelled, 600);
    run("1", RunOutcome::interrupted, 700);
    EXPECT_TRUE(first().failed);
    EXPECT_EQ(first().last_outcome, RunOutcome::interrupted);
    run("1", RunOutcome::success, 800);
    EXPECT_FALSE(first().failed);
}

TEST_F(MetricsReaderTest, ATaskHasFailedBeforeItsRunIsClosed) {
    add_task("1");
    history_.open("1", "Doors", RunCause::hand, 490);
    tasks_.front().status = TASK_FAILED;
    tasks_.front().endTime = "500";
    EXPECT_TRUE(first().failed);
}

TEST_F(MetricsReaderTest, ATaskThatTookOverANumberHasNothingOfTheRunsBefore) {
    add_task("1");
    run("1", RunOutcome::failed, 500);
    memory_.schedules.run("UPDATE task_health SET first_run = 2");
    EXPECT_FALSE(first().failed);
    EXPECT_FALSE(first().last_outcome);
}

TEST_F(MetricsReaderTest, ATaskIsOverdueFromTheVerySecondOn) {
    add_task("1");
    set_overdue("1", "1000");
    EXPECT_FALSE(first(999).overdue);
    EXPECT_TRUE(first(1000).overdue);
}

TEST_F(MetricsReaderTest, ADisabledTaskIsNeverOverdue) {
    add_task("1", false);
    set_overdue("1", "1");
    EXPECT_FALSE(first().overdue);
    EXPECT_FALSE(first().enabled);
}

TEST_F(MetricsReaderTest, TellsNothingOfTasksThatAreDeleted) {
    run("1", RunOutcome::failed, 500);
    run("2", RunOutcome::failed, 500);
    add_task("2");
    EXPECT_EQ(reader_.read(tasks_, {}, 1000).tasks.size(), 1U);
    EXPECT_EQ(first().task_id, "2");
}

TEST_F(MetricsReaderTest, TellsTheRoomOfSharesThatTasksCopyTo) {
    add_room("//nas:445/a");
    add_room("//nas:445/other");
    const auto shares = reader_.read({}, {"//nas:445/a", "//nas:445/unknown"}, 1000).shares;
    ASSERT_EQ(shares.size(), 1U);
    EXPECT_EQ(shares[0].share, "//nas:445/a");
    EXPECT_EQ(shares[0].free, 10);
    EXPECT_EQ(shares[0].total, 100);
    EXPECT_EQ(shares[0].time, 1);
}

TEST_F(MetricsReaderTest, CountsAlertsProblemsAndFailedCalls) {
    memory_.schedules.run(
        "INSERT INTO problem (kind, subject, since) VALUES (0, '1', 1), (1, '1', 1);"
        "INSERT INTO alert (way, id, made, subject, text, object) "
        "VALUES (0, 'a', 1, '', '', ''), (1, 'a', 1, '', '', ''), (0, 'b', 1, '', '', '')");
    const Metrics before = reader_.read({}, {}, 1000);
    EXPECT_EQ(before.problems, 2);
    EXPECT_EQ(before.alerts, 3);
    EXPECT_THROW(memory_.runs.run("no SQL"), standalone::DatabaseError);
    EXPECT_EQ(reader_.read({}, {}, 1000).store_errors, before.store_errors + 1);
}

}  // namespace
