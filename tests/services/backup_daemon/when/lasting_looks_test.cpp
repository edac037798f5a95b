// Keepers that spare looks leave nothing to do for ones that have never looked before.
#include <random>

#include "services/backup_daemon/when/overdue_keeper.h"
#include "services/backup_daemon/when/schedule_keeper.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

namespace {

using services::OverdueKeeper;
using services::ScheduleKeeper;
using standalone::Database;

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;
constexpr int STEPS = 250;

long long utc(long long) {
    return 0;
}

class LastingLooksTest : public RunQueueTest, public testing::WithParamInterface<unsigned> {
protected:
    LastingLooksTest() {
        for (Database* connection : {&database, &memory.schedules, &others_tasks_, &others_memory_})
            connection->run("PRAGMA synchronous = OFF");  // nobody cuts the power here
        now = 20000 * DAY;
        limit = 100;
        for (const char* task_id : {"1", "2", "3", "4"}) change_schedule(task_id);
    }

    int any(int least, int most) { return std::uniform_int_distribution(least, most)(random_); }

    std::string any_task() { return std::to_string(any(1, 4)); }

    void change_schedule(const std::string& task_id) {
        standalone::TaskStore(others_tasks_)
            .set_fields(task_id, {{"enable", any(0, 3) > 0 ? "true" : "false"},
                                  {"scheduleType", std::to_string(any(0, 2))},
                                  {"scheduleWeekly", std::to_string(any(0, 6))},
                                  {"scheduleHour", std::to_string(any(0, 24))},
                                  {"scheduleEveryHours", std::to_string(any(0, 30))}});
    }

    void end_a_run() {
        if (runner.live.empty()) return;
        runner.end(runner.live.begin()->first, any(0, 2) > 0 ? Outcome::success : Outcome::failed);
    }

    void turn_a_clock() {
        const int distance = any(1, 4) * (any(0, 1) > 0 ? HOUR : 3 * DAY);
        now += any(0, 2) > 0 ? distance : -distance;
    }

    void write_as_a_stranger() {
        const std::string time = std::to_string(now + any(-40, 40) * HOUR);
        others_memory_.run(any(0, 1) > 0 ? ("UPDATE next_run SET due = " + time).c_str()
                                         : ("UPDATE task_health SET success_time = " + time +
                                            " WHERE taskID = " + any_task())
                                               .c_str());
    }

    void something_happens() {
        switch (any(0, 7)) {
            case 0:
                return change_schedule(any_task());
            case 1:
                return end_a_run();
            case 2:
                return turn_a_clock();
            case 3:
                return write_as_a_stranger();
            case 4:
                percent_ = any(1, 60);
                return;
            case 5:
                memory.runs.run("INSERT OR REPLACE INTO run_rate VALUES (1, 1, random())");
                return;
            default:
                ++now;
        }
    }

    void look(ScheduleKeeper& schedules, OverdueKeeper& overdue) {
        schedules.look(now, utc);
        overdue.look(now, percent_);
    }

    /// Rows that the daemon's connections have changed.
    long long changes() {
        return database.version().own + memory.schedules.version().own + memory.runs.version().own;
    }

    std::mt19937 random_{GetParam()};
    int percent_ = 25;
    Database others_tasks_{standalone::config_database_path(), Database::Access::writing};
    Database others_memory_{services::memory_database_path(), Database::Access::writing};
    ScheduleKeeper schedules_{store, memory.schedules, times, queue};
    OverdueKeeper overdue_{store, memory.schedules, times};
};

TEST_P(LastingLooksTest, OneThatHasNeverLookedFindsNothingLeftToDo) {
    int looks_with_work = 0;
    for (int step = 0; step < STEPS; ++step) {
        something_happens();
        const long long before = changes();
        look(schedules_, overdue_);
        const long long done = changes();
        const std::size_t said = runner.said.size();
        if (done != before) ++looks_with_work;
        ScheduleKeeper schedules(store, memory.schedules, times, queue);
        OverdueKeeper overdue(store, memory.schedules, times);
        look(schedules, overdue);
        ASSERT_EQ(changes(), done) << "in step " << step;
        ASSERT_EQ(runner.said.size(), said) << "in step " << step;
    }
    EXPECT_GT(looks_with_work, STEPS / 10);
    EXPECT_LT(looks_with_work, STEPS);
}

INSTANTIATE_TEST_SUITE_P(Chances, LastingLooksTest, testing::Range(1U, 9U));

}  // namespace
