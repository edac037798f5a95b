// Schedules that come due in a real store: what they start, and what is remembered of them.
#include "services/backup_daemon/when/schedule_keeper.h"

#include "platform/standalone/store/run_records.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

using services::ScheduleKeeper;
using standalone::NextRun;

namespace {

constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;
constexpr long long MIDNIGHT = 20000 * DAY;

long long utc(long long) {
    return 0;
}

/// Tasks 1 and 2 come due each day at one o'clock, the others never.
class ScheduleKeeperTest : public RunQueueTest {
protected:
    ScheduleKeeperTest() {
        for (const char* task_id : {"1", "2", "3", "4"}) set_hour(task_id, "25");
        for (const char* task_id : {"1", "2"}) set_hour(task_id, "1");
    }

    void set_hour(const std::string& task_id, const std::string& hour) {
        ASSERT_EQ(store.set_fields(task_id, {{"enable", "true"}, {"scheduleHour", hour}}), 0);
    }

    void look(long long time) { keeper.look(time, utc); }

    long long due(const std::string& task_id) {
        const auto next = notes.all();
        return next.contains(task_id) ? next.at(task_id).due : -1;
    }

    services::ScheduleStore notes{memory.schedules};
    ScheduleKeeper keeper{store, memory.schedules, times, queue};
};

TEST_F(ScheduleKeeperTest, FirstLookRemembersAndStartsNothing) {
    look(MIDNIGHT);
    EXPECT_EQ(runner.said, Words{});
    EXPECT_EQ(due("1"), MIDNIGHT + HOUR);
    EXPECT_EQ(due("3"), -1);
}

TEST_F(ScheduleKeeperTest, RunThatComesLateIsOneThatWasMissed) {
    using standalone::RunCause;
    const auto cause = [this] {
        return standalone::RunRecords(memory.schedules).newest("1")->cause;
    };
    look(MIDNIGHT);
    look(MIDNIGHT + HOUR + 60);
    EXPECT_EQ(cause(), RunCause::schedule);
    runner.end("1", Outcome::success);
    look(MIDNIGHT + 5 * DAY);
    EXPECT_EQ(cause(), RunCause::missed);
}

TEST_F(ScheduleKeeperTest, TasksThatComeDueAreStartedOnceSideBySide) {
    look(MIDNIGHT);
    look(MIDNIGHT + HOUR - 1);
    EXPECT_EQ(runner.said, Words{});
    for (const int second : {0, 1, 2}) look(MIDNIGHT + HOUR + second);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    EXPECT_EQ(due("1"), MIDNIGHT + DAY + HOUR);
    runner.end("1", Outcome::success);
    look(MIDNIGHT + HOUR + 3);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    look(MIDNIGHT + DAY + HOUR);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2", "begin 1"}));
}

TEST_F(ScheduleKeeperTest, DueTasksWaitBehindWhatWaitsAlready) {
    limit = 1;
    occupy();
    start("3");
    look(MIDNIGHT);
    look(MIDNIGHT + HOUR);
    EXPECT_EQ(queue.waiting(), (Words{"3", "1", "2"}));
}

TEST_F(ScheduleKeeperTest, DisabledTaskIsForgottenAndNotStarted) {
    look(MIDNIGHT);
    ASSERT_EQ(store.set_fields("1", {{"enable", "false"}}), 0);
    look(MIDNIGHT + HOUR);
    EXPECT_EQ(runner.said, Words{"begin 2"});
    EXPECT_EQ(due("1"), -1);
}

TEST_F(ScheduleKeeperTest, ChangedScheduleIsReckonedAnew) {
    look(MIDNIGHT);
    set_hour("1", "3");
    look(MIDNIGHT + HOUR);
    EXPECT_EQ(runner.said, Words{"begin 2"});
    EXPECT_EQ(due("1"), MIDNIGHT + 3 * HOUR);
}

TEST_F(ScheduleKeeperTest, DueTaskThatCannotBeStoredComesDueAgain) {
    look(MIDNIGHT);
    database.run(
        "CREATE TRIGGER refuse BEFORE INSERT ON queue BEGIN SELECT RAISE(ABORT, 'x'); END");
    EXPECT_THROW(look(MIDNIGHT + HOUR), standalone::DatabaseError);
    EXPECT_EQ(due("1"), MIDNIGHT + HOUR);
    database.run("DROP TRIGGER refuse");
    look(MIDNIGHT + 2 * HOUR);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
}

TEST_F(ScheduleKeeperTest, DaemonKilledBeforeItRemembersStartsTheTaskOnce) {
    look(MIDNIGHT);
    const auto before = notes.all().at("1");
    look(MIDNIGHT + HOUR);
    notes.write({{"1", before}});
    NotingRunner next_runner;
    auto next = make_queue(next_runner);
    next.take_over();
    ScheduleKeeper(store, memory.schedules, times, next).look(MIDNIGHT + HOUR + 1, utc);
    EXPECT_EQ(next_runner.said, (Words{"resume 1", "resume 2"}));
    EXPECT_EQ(next.waiting(), Words{});
}

/// The places in the queue stand; only that they do cannot be noted.
TEST_F(ScheduleKeeperTest, TasksWhoseNextRunCannotBeNotedAreStartedOnceAllTheSame) {
    look(MIDNIGHT);
    memory.schedules.run(
        "CREATE TRIGGER refuse BEFORE INSERT ON next_run BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_THROW(look(MIDNIGHT + HOUR), standalone::DatabaseError);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
    for (const char* task_id : {"1", "2"}) runner.end(task_id, Outcome::success);
    EXPECT_THROW(look(MIDNIGHT + HOUR + 1), standalone::DatabaseError);
    memory.schedules.run("DROP TRIGGER refuse");
    look(MIDNIGHT + HOUR + 2);
    EXPECT_EQ(due("1"), MIDNIGHT + DAY + HOUR);
    EXPECT_EQ(due("2"), MIDNIGHT + DAY + HOUR);
    look(MIDNIGHT + HOUR + 3);
    EXPECT_EQ(runner.said, (Words{"begin 1", "begin 2"}));
}

TEST_F(ScheduleKeeperTest, TasksThatComeDueInOneSecondAreStoredInOneTransactionEach) {
    limit = 1;
    occupy();
    for (const char* task_id : {"1", "2", "3"}) set_hour(task_id, "1");
    look(MIDNIGHT);
    const CommitCount places(database);
    const CommitCount next_runs(memory.schedules);
    look(MIDNIGHT + HOUR);
    EXPECT_EQ(queue.waiting(), (Words{"1", "2", "3"}));
    EXPECT_EQ(places.so_far(), 1);
    EXPECT_EQ(next_runs.so_far(), 1);
}

TEST_F(ScheduleKeeperTest, ChangeByAnotherConnectionIsSeenAtTheNextLook) {
    for (const int second : {0, 1, 2}) look(MIDNIGHT + second);
    standalone::Database other(standalone::config_database_path(),
                               standalone::Database::Access::writing);
    ASSERT_EQ(standalone::TaskStore(other).set_fields("1", {{"scheduleHour", "3"}}), 0);
    look(MIDNIGHT + 3);
    EXPECT_EQ(due("1"), MIDNIGHT + 3 * HOUR);
}

TEST_F(ScheduleKeeperTest, ClockThatIsSetBackIsSeenThoughNothingElseHasChanged) {
    for (const int second : {0, 1, 2}) look(MIDNIGHT + 9 * DAY + second);
    look(MIDNIGHT);
    EXPECT_EQ(due("1"), MIDNIGHT + HOUR);
}

/// How many statements a look takes, and how much it reads, must not hang on how many tasks rest.
TEST_F(ScheduleKeeperTest, NoTaskIsReadWhileNothingHappens) {
    for (const int second : {0, 1}) look(MIDNIGHT + second);
    database.run("ALTER TABLE task RENAME TO hidden_task");
    memory.schedules.run("ALTER TABLE next_run RENAME TO hidden_next_run");
    look(MIDNIGHT + HOUR - 1);
    EXPECT_THROW(look(MIDNIGHT + HOUR), standalone::DatabaseError);
}

}  // namespace
