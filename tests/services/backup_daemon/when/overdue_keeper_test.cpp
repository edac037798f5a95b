// What is kept of tasks that are, or will be, overdue, in a real store.
#include "services/backup_daemon/when/overdue_keeper.h"

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
        const auto health = services::HealthStore(memory.schedules).find(task_id);
        return health ? health->overdue_from : std::nullopt;
    }

    ScheduleKeeper schedules{store, memory.schedules, queue};
    OverdueKeeper keeper{store, memory.schedules};
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
    EXPECT_EQ(services::HealthStore(memory.schedules).find("1")->last_success, 0);
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

}  // namespace
