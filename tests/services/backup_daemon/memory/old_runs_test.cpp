// Which runs the history lets go of, and how many at a time.
#include "services/backup_daemon/memory/old_runs.h"

#include <sqlite3.h>

#include "platform/standalone/store/run_records.h"
#include "services/backup_daemon/memory/health_store.h"
#include "services/backup_daemon/memory/run_history.h"
#include "tests/services/backup_daemon/memory/memory_test.h"
#include "tests/services/backup_daemon/memory/query_plan.h"

namespace {

using namespace services;
using standalone::RunOutcome;

constexpr long long DAY = 86400;
constexpr long long NOW = 20000 * DAY;
constexpr long long OLD = NOW - (KEPT_DAYS + 1) * DAY;

class OldRunsTest : public MemoryTest {
protected:
    OldRunsTest() {
        memory_.runs.run("PRAGMA synchronous=OFF");
        for (const long long days : {40, 20}) run_clean("999", NOW - days * DAY);
    }

    void run_clean(const std::string& task_id, long long started) {
        history_.open(task_id, "Clock", standalone::RunCause::schedule, started);
        history_.close(task_id, {RunOutcome::success, "", started});
    }

    /// So many runs, with a failed file each.
    void run(const std::string& task_id, int count, long long started) {
        RunAccount account;
        account.failures = {{"file", "is gone"}};
        for (int number = 0; number < count; ++number) {
            history_.open(task_id, "Doors", standalone::RunCause::schedule, started);
            history_.note(task_id, account);
            history_.close(task_id, {RunOutcome::failed, "", started});
        }
    }

    int prune(const std::vector<std::string>& stored, long long now = NOW) {
        std::list<TDataBackupConfig> tasks;
        for (const std::string& task_id : stored) tasks.emplace_back().taskID = task_id;
        return prune_runs(memory_.runs, tasks, now);
    }

    /// Numbers of a task's oldest and newest run that are left, "2-201".
    std::string left(const std::string& task_id) {
        std::vector<long long> numbers;
        standalone::RunRecords(memory_.runs)
            .list({.task_id = task_id},
                  [&](const standalone::RunRecord& run) { numbers.push_back(run.number); });
        if (numbers.empty()) return "none";
        return std::to_string(numbers.back()) + '-' + std::to_string(numbers.front());
    }

    /// So many tasks with the runs that are kept of each, however old.
    void fill(int tasks) {
        memory_.runs
            .prepare(
                "WITH RECURSIVE task(id) AS (SELECT 1 UNION ALL SELECT id + 1 FROM task "
                "WHERE id < ?1), past(number) AS (SELECT 1 UNION ALL SELECT number + 1 FROM past "
                "WHERE number < ?2) INSERT INTO run (taskID, number, task_name, cause, started, "
                "outcome) SELECT id, number, 'Doors', 0, ?3, 0 FROM task, past")
            .bind(1, tasks)
            .bind(2, KEPT_RUNS)
            .bind(3, OLD)
            .step();
        memory_.runs.run(
            "INSERT OR IGNORE INTO task_health (taskID, last_number) "
            "SELECT taskID, max(number) FROM run GROUP BY taskID");
    }

    RunHistory history_{memory_.runs};
};

std::vector<std::string> numbered(int count) {
    std::vector<std::string> identifiers;
    for (int number = 1; number <= count; ++number) identifiers.push_back(std::to_string(number));
    return identifiers;
}

TEST_F(OldRunsTest, NewestRunsStayHoweverOldTheyAre) {
    run("1", KEPT_RUNS + 3, OLD);
    EXPECT_EQ(prune({"1"}), 3);
    EXPECT_EQ(left("1"), "4-203");
    EXPECT_EQ(count("run_failure"), KEPT_RUNS);
    EXPECT_EQ(prune({"1"}), 0);
}

TEST_F(OldRunsTest, RunsOfTheLastDaysStayHoweverManyTheyAre) {
    run("1", KEPT_RUNS + 3, NOW - KEPT_DAYS * DAY);
    EXPECT_EQ(prune({"1"}), 0);
    EXPECT_EQ(left("1"), "1-203");
}

TEST_F(OldRunsTest, DeletedTasksRunsStayForTheirDaysAndTheRestOfItGoesWithThem) {
    run("1", 2, OLD);
    run("1", 1, NOW);
    EXPECT_EQ(prune({}), 2);
    EXPECT_EQ(left("1"), "3-3");
    EXPECT_TRUE(HealthStore(memory_.runs).all().contains("1"));
    run("2", 1, OLD);
    EXPECT_EQ(prune({}), 1);
    EXPECT_FALSE(HealthStore(memory_.runs).all().contains("2"));
    EXPECT_TRUE(HealthStore(memory_.runs).all().contains("1"));
}

TEST_F(OldRunsTest, FewGoAtATime) {
    run("1", PRUNED_AT_ONCE + 1, OLD);
    EXPECT_EQ(prune({}), PRUNED_AT_ONCE);
    EXPECT_EQ(prune({}), 1);
}

TEST_F(OldRunsTest, RunThatGoesOnStays) {
    history_.open("1", "Doors", standalone::RunCause::hand, OLD);
    EXPECT_EQ(prune({}), 0);
    EXPECT_EQ(left("1"), "1-1");
}

TEST_F(OldRunsTest, FirstRunOfAClockThatWasAheadHoldsUpNoOther) {
    run("1", 1, NOW + KEPT_DAYS * DAY);
    run("1", KEPT_RUNS + 2, OLD);
    EXPECT_EQ(prune({"1"}), 2);
    EXPECT_EQ(count("run"), 2 + KEPT_RUNS + 1);
}

TEST_F(OldRunsTest, ClockThatIsYearsAheadCostsNothingUntilRunsHaveGoneOnForAMonth) {
    run("1", KEPT_RUNS + 3, NOW);
    const long long ahead = NOW + 5 * 365 * DAY;
    EXPECT_EQ(prune({"1", "999"}, ahead), 0);
    for (const long long days : {0, 10, 20, 30}) {
        run_clean("1", ahead + days * DAY);
        EXPECT_EQ(prune({"1", "999"}, ahead + days * DAY), 0) << days;
    }
    EXPECT_EQ(prune({"1", "999"}, ahead + 32 * DAY), 7);
}

TEST_F(OldRunsTest, RecorderWithoutARunForAMonthLosesNothing) {
    run("1", KEPT_RUNS + 3, OLD);
    EXPECT_EQ(prune({"1", "999"}, NOW + 12 * DAY), 0);
}

TEST_F(OldRunsTest, OldRunsAreReadTaskByTask) {
    const std::string plan = plan_of(memory_.runs, [&] { prune({"1", "999"}); });
    EXPECT_EQ(plan.find("SCAN run"), std::string::npos) << plan;
    EXPECT_EQ(plan.find("USING INDEX run_by_start"), std::string::npos) << plan;
    EXPECT_NE(plan.find("SEARCH run USING PRIMARY KEY (taskID=? AND number<?)"), std::string::npos)
        << plan;
}

/// The loop that answers everybody looks once a minute.
TEST_F(OldRunsTest, LookIsShortHoweverManyOldRunsAreKept) {
    constexpr int TASKS = 50;
    fill(TASKS);
    int thousands = 0;
    const auto count_steps = [](void* counter) {
        ++*static_cast<int*>(counter);
        return 0;
    };
    sqlite3_progress_handler(memory_.runs.handle(), 1000, count_steps, &thousands);
    EXPECT_EQ(prune(numbered(TASKS)), 0);
    EXPECT_LT(thousands, TASKS * KEPT_RUNS * 10 / 1000);
}

TEST_F(OldRunsTest, NobodyIsWaitedForWhenNothingIsToGo) {
    run("1", 1, NOW);
    memory_.runs.limit_waiting(std::chrono::milliseconds(1));
    standalone::Database other(memory_database_path(), standalone::Database::Access::writing);
    const standalone::Transaction writer(other);
    EXPECT_EQ(prune({"1"}), 0);
}

}  // namespace
