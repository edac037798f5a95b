// A daemon killed right after any of its writes: the next life owes exactly what was started.
#include <sqlite3.h>

#include <algorithm>
#include <random>
#include <set>

#include "platform/standalone/store/run_records.h"
#include "services/backup_daemon/when/run_queue.h"
#include "tests/services/backup_daemon/when/queue_fixture.h"

using services::RunQueue;
using standalone::Database;
using Names = std::set<std::string>;

namespace {

constexpr int INPUTS = 300;

Names all_of(const Names& one, const Names& other) {
    Names names = one;
    names.insert(other.begin(), other.end());
    return names;
}

Names in_both(const Names& one, const Names& other) {
    Names names;
    std::set_intersection(one.begin(), one.end(), other.begin(), other.end(),
                          std::inserter(names, names.end()));
    return names;
}

/// Gives random orders, and keeps a copy of both databases as each write to one leaves them.
class RunQueueKillTest : public RunQueueTest {
protected:
    RunQueueKillTest() {
        // Nothing is killed but in thought: what is written need not reach the disk.
        for (Database* each : {&database, &reader, &memory.runs, &memory_reader})
            each->run("PRAGMA synchronous=OFF");
        sqlite3_wal_hook(database.handle(), copy_databases, this);
        sqlite3_wal_hook(memory.runs.handle(), copy_databases, this);
    }

    static int copy_databases(void* test, sqlite3*, const char*, int) {
        auto& self = *static_cast<RunQueueKillTest*>(test);
        self.copies.push_back(self.state_.folder() + "/copy" + std::to_string(self.copies.size()));
        self.reader.run(("VACUUM INTO '" + self.copies.back() + "'").c_str());
        self.memory_reader.run(("VACUUM INTO '" + self.copies.back() + ".memory'").c_str());
        return SQLITE_OK;
    }

    int any(int limit) { return static_cast<int>(chance() % static_cast<unsigned>(limit)); }

    /// Tasks whose run has not been told to end.
    Names going_on() {
        Names names;
        for (const auto& [task_id, listener] : runner.live)
            if (!cancelled.contains(task_id)) names.insert(task_id);
        return names;
    }

    void give_start(const std::string& task_id) {
        const bool in_the_place = any(3) == 0;
        if (in_the_place)
            for (const auto& running : going_on()) owed.erase(running);
        owed.insert(task_id);
        start(task_id, in_the_place, !in_the_place && any(2) == 0);
    }

    void give_stop(const std::string& task_id) {
        owed.erase(task_id);
        queue.stop(task_id);
    }

    void give_stop_of_all() {
        for (const auto& running : going_on()) owed.erase(running);
        queue.stop_running();
    }

    void come_due(const std::string& task_id) {
        if (!runner.live.contains(task_id)) owed.insert(task_id);
        queue.start_by_schedule({{task_id, standalone::RunCause::schedule}});
    }

    void end_a_run(const std::string& task_id) {
        if (!runner.live.contains(task_id)) return;
        if (going_on().contains(task_id)) owed.erase(task_id);
        cancelled.erase(task_id);
        successes.insert(task_id);
        runner.end(task_id, Outcome::success);
    }

    void give_any_input() {
        const std::string task_id = std::to_string(1 + any(4));
        limit = 1 + any(3);
        switch (any(8)) {
            case 0:
            case 1:
                return give_start(task_id);
            case 2:
                return give_stop(task_id);
            case 3:
                return give_stop_of_all();
            case 4:
                return come_due(task_id);
            case 5:
                if (runner.live.contains(task_id)) runner.connect(task_id);
                return;
            default:
                return end_a_run(task_id);
        }
    }

    void note_cancels() {
        for (const std::string& word : runner.said)
            if (word.starts_with("cancel ")) cancelled.insert(word.substr(7));
        runner.said.clear();
    }

    /// A task has a place exactly when its status is "wait".
    static void check_places(standalone::TaskStore& tasks) {
        Names places, waiting;
        for (const auto& place : tasks.queue()) places.insert(place.task_id);
        for (const auto& task : tasks.list())
            if (task.status == TASK_WAIT) waiting.insert(task.taskID);
        EXPECT_EQ(places, waiting);
    }

    /// Every run that ever began has a row, and a success is one that the history was told of, or
    /// its task. What a killed life left open is closed.
    static void check_history(Database& found, const Names& running) {
        Names open;
        for (const auto& run : services::RunHistory(found).open_runs()) open.insert(run.task_id);
        EXPECT_EQ(open, running);
        standalone::RunRecords records(found);
        for (const char* task_id : {"1", "2", "3", "4"}) {
            const auto health = records.health(task_id);
            if (!health || health->last_success == 0) continue;
            const auto success = records.find(task_id, health->last_success);
            ASSERT_TRUE(success);
            EXPECT_EQ(success->outcome, Outcome::success);
            EXPECT_EQ(success->ended, health->success_time);
        }
    }

    /// No run begins without a row, and no success is told of one that had none.
    void check_rows() {
        Names begun;
        for (const auto& [task_id, listener] : runner.live) begun.insert(task_id);
        check_history(memory_reader, begun);
        for (const char* task_id : {"1", "2", "3", "4"}) {
            const auto health = standalone::RunRecords(memory_reader).health(task_id);
            EXPECT_EQ(health && health->success_time, successes.contains(task_id));
        }
    }

    /// The tasks that a life of the daemon runs when it finds this database.
    Names run_in_next_life(const std::string& copy) {
        Database found(copy, Database::Access::writing);
        found.run("PRAGMA synchronous=OFF");
        standalone::TaskStore tasks(found);
        check_places(tasks);
        NotingRunner next_runner;
        Database found_memory(copy + ".memory", Database::Access::writing);
        found_memory.run("PRAGMA synchronous=OFF");
        services::SecuredHistory found_history(found_memory, found_memory);
        RunQueue next(
            tasks, found_history, next_runner, [] { return 2; }, [] { return 2000; });
        next.take_over();
        Names running;
        for (const auto& [task_id, listener] : next_runner.live) running.insert(task_id);
        check_history(found_memory, running);
        Names ran;
        while (!next_runner.live.empty()) {
            ran.insert(next_runner.live.begin()->first);
            next_runner.end(next_runner.live.begin()->first, Outcome::success);
        }
        for (const auto& task : tasks.list())
            EXPECT_TRUE(task.status <= TASK_NEW || task.status == TASK_CANCEL) << task.status;
        check_history(found_memory, {});
        return ran;
    }

    void check_copies(const Names& owed_before) {
        for (const std::string& copy : copies) {
            const Names ran = run_in_next_life(copy);
            EXPECT_EQ(in_both(ran, in_both(owed_before, owed)), in_both(owed_before, owed));
            EXPECT_EQ(all_of(ran, all_of(owed_before, owed)), all_of(owed_before, owed));
            std::filesystem::remove(copy);
            std::filesystem::remove(copy + ".memory");
        }
        kills += static_cast<int>(copies.size());
        copies.clear();
    }

    Database reader{standalone::config_database_path(), Database::Access::reading};
    Database memory_reader{services::memory_database_path(), Database::Access::reading};
    std::mt19937 chance;
    Names successes;  ///< tasks that have succeeded
    Names owed;       ///< tasks that have been started, have not ended and have not been stopped
    Names cancelled;  ///< tasks whose run has been told to end
    std::vector<std::string> copies;
    int kills = 0;
};

TEST_F(RunQueueKillTest, NoStartIsLostAndNoStopUndone) {
    for (const unsigned seed : {1U, 2U, 3U}) {
        chance.seed(seed);
        for (int input = 0; input < INPUTS && !HasFailure(); ++input) {
            SCOPED_TRACE("seed " + std::to_string(seed) + " input " + std::to_string(input));
            const Names owed_before = owed;
            give_any_input();
            note_cancels();
            check_copies(owed_before);
            check_rows();
            EXPECT_LE(runner.live.size(), 3U);
            check_places(store);
        }
    }
    EXPECT_GT(kills, INPUTS);
}

}  // namespace
