// What notices do to the queue in a real store.
#include "services/backup_daemon/when/run_queue.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/standalone/store/state_folder.h"

using services::Notice;
using services::RunQueue;
using standalone::Database;
using Places = std::vector<std::string>;

namespace {

std::string make_state_in_new_folder() {
    std::string folder = testing::TempDir() + "run_queue_XXXXXX";
    if (!mkdtemp(folder.data())) throw std::runtime_error("mkdtemp");
    setenv("RECORDER_STATE", folder.c_str(), 1);
    standalone::make_state();
    return folder;
}

/// Notes what it is told; the tests end the runs.
class NotingRunner : public services::TaskRunner {
public:
    void begin(const TDataBackupConfig& task, bool resumed) override {
        said.push_back((resumed ? "resume " : "begin ") + task.taskID);
    }
    void cancel(const std::string& task_id) override { said.push_back("cancel " + task_id); }

    Places said;
};

class RunQueueTest : public testing::Test {
protected:
    RunQueueTest() {
        for (const char* name : {"one", "two", "three"})
            EXPECT_EQ(store.apply_settings(R"({"taskName": ")" + std::string(name) +
                                           R"(", "status": 1})"),
                      0);
    }

    ~RunQueueTest() override { std::filesystem::remove_all(folder); }

    bool start(const std::string& task_id, bool stop_running = false, bool parallel = false) {
        return queue.start({Notice::Kind::start, task_id, stop_running, parallel});
    }

    int status(const std::string& task_id) { return store.find(task_id).value().status; }

    RunQueue make_queue() {
        return {store, runner, [this] { return limit; }, [this] { return now; }};
    }

    bool run(const std::string& task_id, bool stop_running = false, bool parallel = false) {
        const bool taken = start(task_id, stop_running, parallel);
        queue.dispatch();
        return taken;
    }

    std::string start_time(const std::string& id) { return store.find(id).value().startTime; }
    std::string end_time(const std::string& id) { return store.find(id).value().endTime; }

    std::string folder = make_state_in_new_folder();
    Database database{standalone::config_database_path(), Database::Access::writing};
    standalone::TaskStore store{database};
    NotingRunner runner;
    int limit = 2;
    long long now = 1000;
    RunQueue queue = make_queue();
};

TEST_F(RunQueueTest, StartedTaskWaits) {
    EXPECT_TRUE(start("2"));
    EXPECT_EQ(queue.waiting(), Places{"2"});
    EXPECT_EQ(status("2"), TASK_WAIT);
    EXPECT_EQ(status("1"), TASK_NEW);
}

TEST_F(RunQueueTest, StartsQueueUpInOrder) {
    start("3");
    start("1", false, true);
    start("2");
    EXPECT_EQ(queue.waiting(), (Places{"3", "1", "2"}));
}

TEST_F(RunQueueTest, StartThatStopsWhatRunsComesFirst) {
    start("1");
    start("2");
    start("3", true);
    EXPECT_EQ(queue.waiting(), (Places{"3", "1", "2"}));
    start("2", true);
    EXPECT_EQ(queue.waiting(), (Places{"2", "3", "1"}));
}

TEST_F(RunQueueTest, StartBesideWhatRunsTakesNobodysPlace) {
    start("1");
    start("2", true, true);
    EXPECT_EQ(queue.waiting(), (Places{"1", "2"}));
}

TEST_F(RunQueueTest, SecondStartKeepsThePlace) {
    start("1");
    start("2");
    start("1");
    EXPECT_EQ(queue.waiting(), (Places{"1", "2"}));
}

TEST_F(RunQueueTest, UnknownTaskIsNotStarted) {
    for (const char* task_id : {"0", "-1", "4", "01", "4294967297"}) EXPECT_FALSE(start(task_id));
    EXPECT_EQ(queue.waiting(), Places{});
}

TEST_F(RunQueueTest, DisabledTaskIsStartedOnOrder) {
    ASSERT_EQ(store.apply_settings(R"({"taskID": "1", "enable": false})"), 0);
    EXPECT_TRUE(start("1"));
    EXPECT_EQ(queue.waiting(), Places{"1"});
}

TEST_F(RunQueueTest, StoppedTaskLeavesAsCancelled) {
    start("1");
    start("2");
    queue.stop("1");
    EXPECT_EQ(queue.waiting(), Places{"2"});
    EXPECT_EQ(status("1"), TASK_CANCEL);
    EXPECT_EQ(status("2"), TASK_WAIT);
}

TEST_F(RunQueueTest, StopOfATaskThatDoesNotWaitChangesNothing) {
    start("2");
    for (const char* task_id : {"1", "9", ""}) queue.stop(task_id);
    EXPECT_EQ(queue.waiting(), Places{"2"});
    EXPECT_EQ(status("1"), TASK_NEW);
}

TEST_F(RunQueueTest, RemovedTaskIsGoneFromStoreAndQueue) {
    start("1");
    start("2");
    queue.remove("1");
    queue.remove("9");
    EXPECT_EQ(queue.waiting(), Places{"2"});
    EXPECT_FALSE(store.find("1"));
    EXPECT_EQ(store.list().size(), 2U);
}

TEST_F(RunQueueTest, ReloadKeepsThePlacesOfStoredTasks) {
    start("1");
    start("2");
    store.remove("1");
    queue.reload();
    EXPECT_EQ(queue.waiting(), Places{"2"});
}

TEST_F(RunQueueTest, NextLifeTakesTheQueueOver) {
    start("2");
    start("1");
    RunQueue next = make_queue();
    next.take_over();
    EXPECT_EQ(next.waiting(), (Places{"2", "1"}));
    EXPECT_EQ(status("2"), TASK_WAIT);
}

TEST_F(RunQueueTest, StopThatWasCutOffIsFinishedInTheNextLife) {
    start("1");
    start("2");
    store.dequeue("1");
    RunQueue next = make_queue();
    next.take_over();
    EXPECT_EQ(status("1"), TASK_CANCEL);
    EXPECT_EQ(status("2"), TASK_WAIT);
    EXPECT_EQ(status("3"), TASK_NEW);
}

TEST_F(RunQueueTest, RunGoesThroughItsStates) {
    run("1");
    EXPECT_EQ(runner.said, Places{"begin 1"});
    EXPECT_EQ(status("1"), TASK_PREPARE_START);
    EXPECT_EQ(start_time("1"), "1000");
    queue.connected("1");
    EXPECT_EQ(status("1"), TASK_RUNNING);
    now = 1030;
    queue.ended("1", TASK_SUCCESS);
    EXPECT_EQ(status("1"), TASK_SUCCESS);
    EXPECT_EQ(start_time("1"), "1000");
    EXPECT_EQ(end_time("1"), "1030");
    EXPECT_FALSE(queue.is_running("1"));
}

TEST_F(RunQueueTest, TaskThatMayNotGoBesideOthersWaitsForTheirEnd) {
    run("1");
    run("2");
    EXPECT_EQ(status("2"), TASK_WAIT);
    queue.ended("1", TASK_FAILED);
    queue.dispatch();
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2"}));
    EXPECT_EQ(status("1"), TASK_FAILED);
}

TEST_F(RunQueueTest, ParallelTasksRunSideBySideUpToTheLimit) {
    run("1");
    run("2", false, true);
    run("3", false, true);
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2"}));
    EXPECT_EQ(queue.waiting(), Places{"3"});
    limit = 3;
    queue.dispatch();
    EXPECT_TRUE(queue.is_running("3"));
}

TEST_F(RunQueueTest, ParallelTaskPassesOneThatWaitsForAll) {
    run("1");
    run("2");
    run("3", false, true);
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 3"}));
    EXPECT_EQ(queue.waiting(), Places{"2"});
}

TEST_F(RunQueueTest, StartThatStopsWhatRunsTakesItsPlace) {
    run("1");
    run("2", false, true);
    run("3", true);
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2", "cancel 1", "cancel 2"}));
    EXPECT_EQ(status("1"), TASK_PREPARE_STOP);
    queue.ended("1", TASK_CANCEL);
    queue.dispatch();
    EXPECT_EQ(status("3"), TASK_WAIT);
    queue.ended("2", TASK_CANCEL);
    queue.dispatch();
    EXPECT_EQ(runner.said.back(), "begin 3");
    EXPECT_EQ(status("1"), TASK_CANCEL);
}

TEST_F(RunQueueTest, StopFlagMeansNothingBesideTheParallelOne) {
    run("1");
    run("2", true, true);
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2"}));
}

TEST_F(RunQueueTest, SecondStartOfARunningTaskLetsItGoOn) {
    run("1");
    EXPECT_TRUE(run("1"));
    EXPECT_TRUE(run("1", false, true));
    EXPECT_EQ(runner.said, Places{"begin 1"});
    EXPECT_EQ(queue.waiting(), Places{});
    EXPECT_EQ(status("1"), TASK_PREPARE_START);
}

TEST_F(RunQueueTest, RunningTaskBeginsAnewWhenToldToTakeItsOwnPlace) {
    run("1");
    run("1", true);
    EXPECT_EQ(runner.said, (Places{"begin 1", "cancel 1"}));
    queue.ended("1", TASK_CANCEL);
    EXPECT_EQ(status("1"), TASK_WAIT);
    queue.dispatch();
    EXPECT_EQ(runner.said.back(), "begin 1");
    EXPECT_EQ(status("1"), TASK_PREPARE_START);
}

TEST_F(RunQueueTest, StopOfARunningTaskIsToldOnce) {
    run("1");
    run("2", false, true);
    queue.stop("1");
    queue.stop("1");
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2", "cancel 1"}));
    EXPECT_EQ(status("1"), TASK_PREPARE_STOP);
    EXPECT_EQ(status("2"), TASK_PREPARE_START);
    queue.connected("1");
    EXPECT_EQ(status("1"), TASK_PREPARE_STOP);
}

TEST_F(RunQueueTest, StopWithoutTaskStopsAllThatRunAndNoneThatWaits) {
    run("1");
    run("2", false, true);
    run("3");
    queue.stop("");
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2", "cancel 1", "cancel 2"}));
    EXPECT_EQ(status("3"), TASK_WAIT);
}

TEST_F(RunQueueTest, RemovedTaskIsStoppedAndItsEndTouchesNothing) {
    run("1");
    queue.remove("1");
    EXPECT_EQ(runner.said.back(), "cancel 1");
    EXPECT_FALSE(store.find("1"));
    queue.ended("1", TASK_CANCEL);
    EXPECT_FALSE(store.find("1"));
}

TEST_F(RunQueueTest, ReloadStopsTheRunOfATaskThatIsGone) {
    run("1");
    store.remove("1");
    queue.reload();
    EXPECT_EQ(runner.said.back(), "cancel 1");
}

TEST_F(RunQueueTest, ScheduleStartsATaskBesideOthersButNeverTwice) {
    queue.start_by_schedule("1");
    queue.start_by_schedule("1");
    queue.start_by_schedule("2");
    queue.dispatch();
    queue.start_by_schedule("1");
    queue.dispatch();
    EXPECT_EQ(runner.said, (Places{"begin 1", "begin 2"}));
    EXPECT_EQ(queue.waiting(), Places{});
}

TEST_F(RunQueueTest, NextLifeTakesUpWhatWasRunningBeforeWhatWaited) {
    run("1");
    run("3", false, true);
    queue.connected("3");
    start("2");
    runner.said.clear();
    now = 2000;
    RunQueue next = make_queue();
    next.take_over();
    EXPECT_EQ(next.waiting(), (Places{"1", "3", "2"}));
    next.dispatch();
    EXPECT_EQ(runner.said, (Places{"resume 1", "resume 3"}));
    EXPECT_EQ(start_time("1"), "1000");
    EXPECT_EQ(status("1"), TASK_PREPARE_START);
}

TEST_F(RunQueueTest, NextLifeFinishesAStopThatWasUnderWay) {
    run("1");
    queue.stop("1");
    RunQueue next = make_queue();
    next.take_over();
    EXPECT_EQ(status("1"), TASK_CANCEL);
    EXPECT_EQ(next.waiting(), Places{});
}

}  // namespace
