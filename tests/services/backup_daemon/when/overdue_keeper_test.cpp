// What is kept of tasks that are, or will be, overdue, in a real store.
#include "services/backup_daemon/when/overdue_keeper.h"

#include "platform/standalone/store/run_records.h"
#include "services/backup_daemon/when/schedule_keeper.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

namespace {

using services::OverdueKeeper;
using services::ScheduleKeeper;

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;
constexpr long long MIDNIGHT = 20000 * DAY;

long long utc(long long) {
    return 0;
}

/// Task 1 comes due each day at one o'clock, the others never.
class OverdueKeeperTest : public RunQueueTest {
protected:
    OverdueKeeperTest() {
        for (const char* task_id : {"1", "2", "3", "4"})
            EXPECT_EQ(store.set_fields(task_id, {{"enable", "true"}, {"scheduleHour", "25"}}), 0);
        EXPECT_EQ(store.set_fields("1", {{"scheduleHour", "1"}}), 0);
    }

    void look(long long time) {
        now = time;
        schedules.look(time, utc);
        keeper.look(time, 25);
    }

    std::optional<long long> overdue_from(const std::string& task_id) {
        const auto health = standalone::RunRecords(memory.schedules).health(task_id);
        return health ? health->overdue_from : std::nullopt;
    }

    ScheduleKeeper schedules{store, memory.schedules, times, queue};
    OverdueKeeper keeper{store, memory.schedules, times};
};

TEST_F(OverdueKeeperTest, TaskIsOverdueUntilItSucceeds) {
    look(MIDNIGHT);
    EXPECT_EQ(overdue_from("1"), MIDNIGHT + HOUR);
    look(MIDNIGHT + HOUR);
    runner.end("1", Outcome::failed);
    look(MIDNIGHT + HOUR + 1);
    EXPECT_EQ(overdue_from("1"), MIDNIGHT + HOUR);
    look(MIDNIGHT + DAY + HOUR);
    runner.end("1", Outcome::success);
    look(MIDNIGHT + DAY + HOUR + 1);
    EXPECT_EQ(overdue_from("1"), MIDNIGHT + 2 * DAY + 7 * HOUR);
}

TEST_F(OverdueKeeperTest, TasksWithoutAScheduleAndDisabledOnesNeverAre) {
    look(MIDNIGHT);
    EXPECT_EQ(overdue_from("2"), std::nullopt);
    EXPECT_EQ(store.set_fields("1", {{"enable", "false"}}), 0);
    look(MIDNIGHT + 2 * HOUR);
    EXPECT_EQ(overdue_from("1"), std::nullopt);
}

TEST_F(OverdueKeeperTest, SuccessOfAVersionWithoutAHistoryCounts) {
    EXPECT_EQ(
        store.set_fields("1", {{"status", "0"}, {"endTime", std::to_string(MIDNIGHT - HOUR)}}), 0);
    look(MIDNIGHT);
    EXPECT_EQ(overdue_from("1"), MIDNIGHT - HOUR + DAY + 6 * HOUR);
    EXPECT_EQ(standalone::RunRecords(memory.schedules).health("1")->last_success, 0);
}

TEST_F(OverdueKeeperTest, NothingIsWrittenWhenNothingHasChanged) {
    look(MIDNIGHT);
    look(MIDNIGHT + HOUR);
    runner.end("1", Outcome::success);
    look(MIDNIGHT + HOUR + 1);
    memory.schedules.limit_waiting(std::chrono::milliseconds(1));
    standalone::Database other(services::memory_database_path(),
                               standalone::Database::Access::writing);
    const standalone::Transaction writer(other);
    keeper.look(MIDNIGHT + HOUR + 2, 25);
    EXPECT_THROW(keeper.look(MIDNIGHT + HOUR + 2, 100), standalone::DatabaseError);
}

TEST_F(OverdueKeeperTest, AnotherGraceTimeIsWrittenOfAllTasksInOneTransaction) {
    for (const char* task_id : {"2", "3"})
        EXPECT_EQ(store.set_fields(task_id, {{"scheduleHour", "1"}}), 0);
    look(MIDNIGHT);
    look(MIDNIGHT + HOUR);
    const long long succeeded = now;
    for (const char* task_id : {"1", "2"}) runner.end(task_id, Outcome::success);
    runner.end("3", Outcome::success);
    look(MIDNIGHT + HOUR + 1);
    const CommitCount commits(memory.schedules);
    keeper.look(MIDNIGHT + HOUR + 2, 100);
    EXPECT_EQ(commits.so_far(), 1);
    for (const char* task_id : {"1", "2", "3"})
        EXPECT_EQ(overdue_from(task_id), succeeded + 2 * DAY) << task_id;
}

TEST_F(OverdueKeeperTest, SuccessOfAClockThatWasAheadIsBelievedWhenItsTimeComes) {
    look(MIDNIGHT + 9 * DAY);
    look(MIDNIGHT + 9 * DAY + HOUR);
    runner.end("1", Outcome::success);
    for (const int second : {1, 2}) look(MIDNIGHT + 9 * DAY + HOUR + second);
    for (const int second : {0, 1}) look(MIDNIGHT + second);
    EXPECT_EQ(overdue_from("1"), MIDNIGHT + DAY + 6 * HOUR);
    keeper.look(MIDNIGHT + 9 * DAY + HOUR, 25);
    EXPECT_EQ(overdue_from("1"), MIDNIGHT + 10 * DAY + 7 * HOUR);
}

}  // namespace
