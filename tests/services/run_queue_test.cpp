// What notices do to the queue in a real store.
#include "services/backup_daemon/run_queue.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/standalone/state_folder.h"

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

    std::string folder = make_state_in_new_folder();
    Database database{standalone::config_database_path(), Database::Mode::read_write};
    standalone::TaskStore store{database};
    RunQueue queue{store};
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
    RunQueue next(store);
    next.take_over();
    EXPECT_EQ(next.waiting(), (Places{"2", "1"}));
    EXPECT_EQ(status("2"), TASK_WAIT);
}

TEST_F(RunQueueTest, StopThatWasCutOffIsFinishedInTheNextLife) {
    start("1");
    start("2");
    store.dequeue("1");
    RunQueue next(store);
    next.take_over();
    EXPECT_EQ(status("1"), TASK_CANCEL);
    EXPECT_EQ(status("2"), TASK_WAIT);
    EXPECT_EQ(status("3"), TASK_NEW);
}

}  // namespace
