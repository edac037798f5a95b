// A queue over a real store, and a runner whose runs fare as the test says.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "services/backup_daemon/memory/times_watch.h"
#include "services/backup_daemon/when/run_queue.h"
#include "tests/support/temporary_state.h"

using Words = std::vector<std::string>;

/// Notes what it is told.
class NotingRunner : public services::TaskRunner {
public:
    bool can_begin() override { return ready; }

    void begin(const TDataBackupConfig& task, bool resumed, Listener listener) override {
        EXPECT_TRUE(ready);
        when_begun();
        said.push_back((resumed ? "resume " : "begin ") + task.taskID);
        if (refuses) throw std::runtime_error("no process can be made");
        const bool is_first = live.emplace(task.taskID, std::move(listener)).second;
        EXPECT_TRUE(is_first) << "task " << task.taskID << " has a run already";
    }

    void cancel(const std::string& task_id) override {
        said.push_back("cancel " + task_id);
        if (refuses) throw std::runtime_error("no time can be had");
    }

    void clean_up(const TDataBackupConfig& task) override {
        said.push_back("clean up " + task.taskID);
    }

    void connect(const std::string& task_id) { live.at(task_id).connected(); }

    void end(const std::string& task_id, services::RunOutcome outcome) {
        const Listener listener = live.at(task_id);
        live.erase(task_id);
        listener.ended(outcome);
    }

    Words said;
    std::map<std::string, Listener> live;  ///< whom the runs that have not ended tell
    bool refuses = false;                  ///< no run can begin, or be cancelled
    bool ready = true;                     ///< runs can get anywhere
    std::function<void()> when_begun = [] {};
};

/// Counts the transactions that a connection stores, each of which waits for the disk.
class CommitCount {
public:
    explicit CommitCount(standalone::Database& database) : database_(database) {
        sqlite3_commit_hook(database_.handle(), note, &count_);
    }
    ~CommitCount() { sqlite3_commit_hook(database_.handle(), nullptr, nullptr); }
    CommitCount(const CommitCount&) = delete;
    CommitCount& operator=(const CommitCount&) = delete;

    int so_far() const { return count_; }

private:
    static int note(void* count) {
        ++*static_cast<int*>(count);
        return 0;
    }

    standalone::Database& database_;
    int count_ = 0;
};

/// Four new tasks, a limit of 2, and a clock that stands at 1000.
class RunQueueTest : public StateTest {
protected:
    using Outcome = services::RunOutcome;

    RunQueueTest() {
        for (const char* name : {"one", "two", "three", "four"})
            EXPECT_EQ(store.apply_settings(R"({"taskName": ")" + std::string(name) +
                                           R"(", "status": 1})"),
                      0);
    }

    services::RunQueue make_queue(services::TaskRunner& runs) {
        return {store, history, runs, [this] { return limit; }, [this] { return now; }};
    }

    bool start(const std::string& task_id, bool stop_running = false, bool parallel = false) {
        return queue.start({task_id, stop_running, parallel});
    }

    /// Has task 4 run, so that whatever is started behind it waits.
    void occupy() {
        start("4");
        runner.said.clear();
    }

    /// Status, start and end time: "running 1000 -".
    std::string state(const std::string& task_id) {
        const auto task = store.find(task_id);
        if (!task) return "gone";
        const auto time = [](const std::string& text) { return text.empty() ? "-" : text; };
        return std::string(table_text(strStatus_Arr, task->status)) + ' ' + time(task->startTime) +
               ' ' + time(task->endTime);
    }

    standalone::Database database{standalone::config_database_path(),
                                  standalone::Database::Access::writing};
    standalone::TaskStore store{database};
    services::Memory memory = services::open_memory();
    services::TimesWatch times{memory};
    services::SecuredHistory history{memory.runs, memory.schedules};
    NotingRunner runner;
    int limit = 2;
    long long now = 1000;
    services::RunQueue queue = make_queue(runner);
};
