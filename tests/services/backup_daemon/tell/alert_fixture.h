// A recorder's store with tasks whose runs, schedules and shares fare as the test says.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "services/backup_daemon/memory/run_history.h"
#include "services/backup_daemon/tell/problem_look.h"
#include "tests/support/temporary_state.h"

/// Tasks 1 "Door" and 2 "Yard", enabled, both to share "nas"; nothing has run.
class AlertTest : public StateTest {
protected:
    using Outcome = standalone::RunOutcome;

    AlertTest() {
        for (const char* name : {"Door", "Yard"}) add_task(name);
    }

    void add_task(const std::string& name) {
        EXPECT_EQ(store.apply_settings(R"({"taskName": ")" + name + R"(", "serverIP": "nas"})"), 0);
        set(std::to_string(++tasks), {{"enable", "true"}});
    }

    void set(const std::string& task_id,
             const std::vector<std::pair<std::string, std::string>>& fields) {
        EXPECT_EQ(store.set_fields(task_id, fields), 0);
    }

    /// A run from its beginning to its end, both now; the task's state is stored first.
    void run(const std::string& task_id, Outcome outcome, const std::string& reason = "") {
        services::RunHistory history(memory.runs);
        history.open(task_id, "name then", standalone::RunCause::hand, now);
        set_status(task_id, outcome);
        history.close(task_id, {outcome, reason, now});
    }

    void set_status(const std::string& task_id, Outcome outcome) {
        const std::map<Outcome, int> statuses = {{Outcome::success, TASK_SUCCESS},
                                                 {Outcome::failed, TASK_FAILED},
                                                 {Outcome::cancelled, TASK_CANCEL},
                                                 {Outcome::interrupted, TASK_WAIT}};
        set(task_id,
            {{"status", std::to_string(statuses.at(outcome))}, {"endTime", std::to_string(now)}});
    }

    void be_due(const std::string& task_id, long long time) {
        auto row = memory.runs.prepare(
            "INSERT INTO task_health (taskID, overdue_from) VALUES (?1, ?2) "
            "ON CONFLICT (taskID) DO UPDATE SET overdue_from = ?2");
        row.bind(1, task_id).bind(2, time).step();
    }

    void tell_room(const std::string& share, long long free, long long total) {
        auto row = memory.runs.prepare(
            "INSERT OR REPLACE INTO share_room (destination, free, total, time) "
            "VALUES (?, ?, ?, ?)");
        row.bind(1, share).bind(2, free).bind(3, total).bind(4, now).step();
    }

    /// The newest run has found a spoilt copy.
    void find_spoilt(const std::string& task_id, const std::string& path) {
        services::CopyStore(memory.runs, task_id, "d").doubt(path, "Door/2024-03-01/");
    }

    long long count(const std::string& table) {
        auto row = memory.runs.prepare("SELECT count(*) FROM " + table);
        row.step();
        return row.integer(0);
    }

    static std::string share_of(const TDataBackupConfig& task) { return task.serverIP; }

    standalone::Database database{standalone::config_database_path(),
                                  standalone::Database::Access::writing};
    standalone::TaskStore store{database};
    services::Memory memory = services::open_memory();
    long long now = 1'000'000;
    int tasks = 0;
};
