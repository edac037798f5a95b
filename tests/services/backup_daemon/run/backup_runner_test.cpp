// What is left of runs when they end: figures, events, and who is told.
#include "services/backup_daemon/run/backup_runner.h"

#include <event2/event.h>

#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/run_records.h"
#include "platform/standalone/store/state_folder.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "tests/support/temporary_state.h"

using namespace services;
using namespace std::chrono_literals;
using standalone::Database;

namespace {

struct FreeLoop {
    void operator()(event_base* loop) const { event_base_free(loop); }
};

class BackupRunnerTest : public StateTest {
protected:
    /// Begins a run that needs no server, and plays it to its end.
    void run(const TDataBackupConfig& task) {
        runner.begin(task, false, {[] {}, [this](RunOutcome outcome) { ends.push_back(outcome); }});
        while (ends.empty()) event_base_loop(loop.get(), EVLOOP_ONCE);
    }

    static TDataBackupConfig task_without_server() {
        TDataBackupConfig task;
        task.taskID = "1";
        task.taskName = "Doors";
        return task;
    }

    static TDataBackupConfig task_without_channels() {
        TDataBackupConfig task = task_without_server();
        task.serverIP = "127.0.0.1";
        task.destPath = "/backup";
        return task;
    }

    standalone::RunRecord newest_run() {
        return standalone::RunRecords(memory.runs).newest("1").value();
    }

    std::optional<RunFigures> stored() { return ProgressStore(memory.runs).find("1"); }

    /// Identifier and last argument of all events, oldest first.
    static std::vector<std::pair<unsigned, std::string>> events() {
        Database database(standalone::event_database_path(), Database::Access::reading);
        std::vector<std::pair<unsigned, std::string>> told;
        for (const auto& event : standalone::EventStore(database).newest({}, 100))
            told.insert(told.begin(), {event.event_id, event.arguments.back()});
        return told;
    }

    std::unique_ptr<event_base, FreeLoop> loop{event_base_new()};
    Database config{standalone::config_database_path(), Database::Access::writing};
    Memory memory = open_memory();
    BackupRunner runner{loop.get(), config, memory.runs, std::string(32, 'a')};
    std::vector<RunOutcome> ends;
};

constexpr const char* NO_SERVER = "the task names no server and share";

TEST_F(BackupRunnerTest, EndOfASuccessIsStoredAndTold) {
    run(task_without_channels());
    EXPECT_EQ(ends, std::vector<RunOutcome>{RunOutcome::success});
    EXPECT_EQ(events(), (std::vector<std::pair<unsigned, std::string>>{
                            {RUN_STARTED, "Doors"}, {RUN_SUCCEEDED, "0 files, 0 bytes"}}));
    ASSERT_TRUE(stored());
    EXPECT_EQ(stored()->message, "");
    EXPECT_TRUE(runner.running().empty());
    EXPECT_TRUE(runner.can_begin());
}

TEST_F(BackupRunnerTest, LookBehindARunComesWhenItsEndWasHeard) {
    std::vector<std::size_t> heard;
    runner.look_behind_each_run([&] { heard.push_back(ends.size()); });
    run(task_without_channels());
    EXPECT_EQ(heard, std::vector<std::size_t>{1});
}

TEST_F(BackupRunnerTest, EndOfAFailureIsStoredAndToldWithItsReason) {
    testing::internal::CaptureStderr();
    run(task_without_server());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              std::string("task 1 \"Doors\": ") + NO_SERVER + "\n");
    EXPECT_EQ(ends, std::vector<RunOutcome>{RunOutcome::failed});
    EXPECT_EQ(events().back(), (std::pair<unsigned, std::string>{RUN_FAILED, NO_SERVER}));
    ASSERT_TRUE(stored());
    EXPECT_EQ(stored()->message, NO_SERVER);
}

TEST_F(BackupRunnerTest, HistoryHasTheReasonBeforeAnybodyHearsOfTheEnd) {
    RunHistory(memory.schedules).open("1", "Doors", standalone::RunCause::hand, 1000);
    std::string heard;
    testing::internal::CaptureStderr();
    runner.begin(task_without_server(), false,
                 {[] {}, [&](RunOutcome) { heard = newest_run().reason; }});
    while (heard.empty()) event_base_loop(loop.get(), EVLOOP_ONCE);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(heard, NO_SERVER);
    EXPECT_GT(newest_run().seen, 1000);
    EXPECT_FALSE(newest_run().outcome) << "that is for the queue to tell";
}

TEST_F(BackupRunnerTest, FiguresThatCannotBeStoredAreStoredLaterAndNothingBeginsBefore) {
    memory.runs.limit_waiting(1ms);
    // A date that is known already, so that the run has nothing else to store.
    CopyStore(memory.runs, "1", "").set_date({.trusted = "9000-01-01"});
    Database other(memory_database_path(), Database::Access::writing);
    auto writer = std::make_unique<standalone::Transaction>(other);
    testing::internal::CaptureStderr();
    run(task_without_channels());
    runner.tick();
    runner.tick();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "the progress of runs cannot be written: database is locked\n");
    EXPECT_EQ(ends, std::vector<RunOutcome>{RunOutcome::success});
    EXPECT_FALSE(runner.can_begin());
    EXPECT_FALSE(stored());
    writer.reset();
    runner.tick();
    EXPECT_TRUE(runner.can_begin());
    EXPECT_TRUE(stored());
}

/// Otherwise nothing would ever begin again, and nobody would hear why.
TEST_F(BackupRunnerTest, FiguresThatWillNeverBeStoredAreGivenUp) {
    memory.runs.run("DROP TABLE run_progress");
    testing::internal::CaptureStderr();
    run(task_without_channels());
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "the progress of runs cannot be written: no such table: run_progress\n");
    EXPECT_TRUE(runner.can_begin());
}

}  // namespace
