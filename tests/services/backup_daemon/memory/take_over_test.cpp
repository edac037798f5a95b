// An older version's rows move into the daemon's database wholly, whenever the daemon is killed.
#include "services/backup_daemon/memory/take_over.h"

#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "platform/standalone/store/state_folder.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "tests/support/older_state.h"

namespace {

using namespace services;
using standalone::config_database_path;
using standalone::Database;
using standalone::NextRun;
using standalone::Statement;

constexpr std::array MOVED = {"next_run", "run_progress", "copied_file", "checkpoint"};

// All but what the newer database has alone.
constexpr char COLUMNS_IN_ORDER[] =
    "SELECT group_concat(name) FROM (SELECT name FROM pragma_table_info(?) "
    "WHERE name NOT IN ('share_modified_ns', 'sampled', 'abandoned') ORDER BY name)";

std::string text(Database& database, const std::string& sql) {
    Statement row = database.prepare(sql);
    return row.step() ? row.text(0) : "";
}

/// All rows of a table as one text.
std::string rows(Database& database, const std::string& table) {
    Statement columns = database.prepare(COLUMNS_IN_ORDER);
    columns.bind(1, table).step();
    const std::string names = columns.text(0);
    return text(database, "SELECT json_group_array(json_array(" + names +
                              ")) FROM (SELECT * FROM " + table + " ORDER BY " + names + ")");
}

std::vector<std::string> moved_rows(const std::string& path) {
    Database database(path, Database::Access::reading);
    std::vector<std::string> all;
    for (const char* table : MOVED) all.push_back(rows(database, table));
    return all;
}

/// The rows in their new place, destinations named by their addresses again, in the order of
/// these.
std::vector<std::string> taken_over_rows() {
    Database database(memory_database_path(), Database::Access::writing);
    database.run(
        "CREATE TEMP TABLE copied_file AS SELECT * FROM main.copied_file; "
        "CREATE TEMP TABLE checkpoint AS SELECT * FROM main.checkpoint; "
        "UPDATE temp.copied_file SET destination = "
        "(SELECT address FROM destination_address WHERE id = destination); "
        "UPDATE temp.checkpoint SET destination = "
        "(SELECT address FROM destination_address WHERE id = destination)");
    std::vector<std::string> all;
    for (const char* table : MOVED) all.push_back(rows(database, table));
    return all;
}

std::string destination(Database& database, const std::string& address) {
    return text(database, "SELECT id FROM destination_address WHERE address = '" + address + "'");
}

bool config_has(const std::string& table) {
    Database config(config_database_path(), Database::Access::reading);
    Statement row = config.prepare("SELECT 1 FROM sqlite_schema WHERE name = ?");
    return row.bind(1, table).step();
}

/// What the daemon does with its memory at its start.
void start() {
    const Memory memory = open_memory();
    take_over_from_config(memory_database_path(), config_database_path());
}

int statements_left = 0;

int count_statement(unsigned, void*, void*, void*) {
    if (--statements_left < 0) kill(getpid(), SIGKILL);
    return 0;
}

int trace(sqlite3* connection, const char**, const sqlite3_api_routines*) {
    return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, count_statement, nullptr);
}

/// Starts in a process of its own that is killed before statement number `limit`, counted from 0.
/// @return whether it was killed
bool start_and_be_killed(int limit) {
    const pid_t child = fork();
    if (child == 0) {
        statements_left = limit;
        sqlite3_auto_extension(reinterpret_cast<void (*)()>(trace));
        start();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) || status == 0) << status;
    return WIFSIGNALED(status);
}

TEST(TakeOver, EveryRowOfTheOlderVersionMovesAndTheRestStays) {
    const OlderState state;
    const auto before = moved_rows(config_database_path());
    for (const std::string& table : before) EXPECT_GT(table.size(), 2U) << "a table without rows";
    standalone::make_state();
    start();
    EXPECT_EQ(taken_over_rows(), before);
    for (const char* table : MOVED) EXPECT_FALSE(config_has(table)) << table;
    EXPECT_FALSE(config_has("copied_by_day"));
    Database config(config_database_path(), Database::Access::reading);
    EXPECT_EQ(text(config, "SELECT count(*) FROM task"), "3");
    EXPECT_EQ(text(config, "SELECT count(*) FROM queue"), "1");
    EXPECT_EQ(text(config, "SELECT count(*) FROM channel"), "4");
    EXPECT_EQ(text(config, "PRAGMA user_version"), "4");
    EXPECT_EQ(text(config, "PRAGMA integrity_check"), "ok");
}

TEST(TakeOver, TheDaemonReadsWhatTheOlderVersionWrote) {
    const OlderState state;
    standalone::make_state();
    start();
    Database memory(memory_database_path(), Database::Access::writing);
    CopyStore running(memory, "3", destination(memory, "//127.0.0.1:43009/backup/recorder"));
    ASSERT_EQ(running.checkpoints().size(), 1U);
    EXPECT_EQ(running.checkpoints()[0].offset, 8388608);
    CopyStore full(memory, "1", destination(memory, "//127.0.0.1:44871/backup/recorder"));
    EXPECT_EQ(full.oldest_day(), "2026-11-20") << "the day before made room";
    EXPECT_TRUE(full.copied_in("Front/2026-11-19/").begin()->second.removed);
    EXPECT_EQ(ScheduleStore(memory).all().at("4").due, 1795305600);
    ASSERT_TRUE(ProgressStore(memory).find("3"));
    EXPECT_FALSE(ProgressStore(memory).find("3")->seconds_left);
    EXPECT_EQ(ProgressStore(memory).find("1")->percent, 100.0);
    const time_t last = ProgressStore(memory).find("1")->time_ms / 1000;
    std::array<char, sizeof "2024-03-01"> day{};
    std::strftime(day.data(), day.size(), "%F", std::localtime(&last));
    EXPECT_EQ(CopyStore(memory, "1").date(), TaskDate{.trusted = day.data()});
    EXPECT_FALSE(CopyStore(memory, "4").date()) << "it has never run";
}

TEST(TakeOver, KilledBeforeAnyOfItsStatementsTheNextStartCompletesIt) {
    int limit = 0;
    for (bool killed = true; killed; ++limit) {
        const OlderState state;
        const auto before = moved_rows(config_database_path());
        standalone::make_state();
        killed = start_and_be_killed(limit);
        start();
        ASSERT_EQ(taken_over_rows(), before) << limit;
        ASSERT_FALSE(config_has("copied_file")) << limit;
    }
    EXPECT_GT(limit, 15) << "it was not killed at every point";
}

TEST(TakeOver, NothingIsDroppedWhenARowCannotBeCopied) {
    const OlderState state;
    const auto before = moved_rows(config_database_path());
    standalone::make_state();
    {
        Memory memory = open_memory();
        memory.runs.run(
            "CREATE TRIGGER refuse BEFORE INSERT ON checkpoint "
            "BEGIN SELECT RAISE(ABORT, 'no'); END");
    }
    EXPECT_THROW(start(), standalone::DatabaseError);
    EXPECT_EQ(moved_rows(config_database_path()), before);
}

TEST(TakeOver, RowThatIsThereAlreadyIsTheNewerOne) {
    const OlderState state;
    standalone::make_state();
    {
        Memory memory = open_memory();
        ScheduleStore(memory.schedules).write({{"4", NextRun{"newer", 5}}});
    }
    start();
    Database memory(memory_database_path(), Database::Access::reading);
    EXPECT_EQ(ScheduleStore(memory).all().at("4").rule, "newer");
    EXPECT_TRUE(ScheduleStore(memory).all().contains("3"));
}

TEST(TakeOver, HappensOnceAndANewRecorderHasNothingToMove) {
    const TemporaryState state;
    start();
    for (const char* table : MOVED) EXPECT_FALSE(config_has(table)) << table;
    const auto before = moved_rows(memory_database_path());
    start();
    standalone::make_state();
    EXPECT_EQ(taken_over_rows(), before);
    for (const char* table : MOVED) EXPECT_FALSE(config_has(table)) << table;
}

}  // namespace
