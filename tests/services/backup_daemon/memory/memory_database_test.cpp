// The daemon's database: how it is made, and what is swept out when tasks are gone.
#include "services/backup_daemon/memory/memory_database.h"

#include <sys/stat.h>

#include "platform/standalone/store/run_records.h"
#include "platform/standalone/store/schema.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/health_store.h"
#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/memory/run_history.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using standalone::Database;
using standalone::NextRun;

std::list<TDataBackupConfig> tasks(const std::vector<std::string>& identifiers) {
    std::list<TDataBackupConfig> list;
    for (const std::string& task_id : identifiers) list.emplace_back().taskID = task_id;
    return list;
}

class MemoryDatabaseTest : public MemoryTest {
protected:
    void remember(const std::string& task_id) {
        ScheduleStore(memory_.schedules).write({{task_id, NextRun{"rule", 1}}});
        ProgressStore(memory_.runs).set(task_id, {});
        CopyStore copies(memory_.runs, task_id, "//d");
        copies.save({"begun by " + task_id, "t", 1, ""});
        CopiedFile file;
        file.path = "copied by " + task_id;
        copies.record(file);
        copies.doubt("", "no folder/");
        memory_.runs
            .prepare("INSERT OR REPLACE INTO task_date (taskID, trusted_day) VALUES (?, '')")
            .bind(1, std::stoll(task_id))
            .step();
    }

    /// Tasks that are remembered in each table; copied_file comes last.
    std::string remembered() {
        std::string text;
        for (const char* table : {"next_run", "run_progress", "checkpoint", "task_date",
                                  "copies_differ", "copied_file"}) {
            standalone::Statement row = memory_.runs.prepare(std::string("SELECT taskID FROM ") +
                                                             table + " ORDER BY taskID");
            while (row.step()) text += row.text(0) + ' ';
            text += "| ";
        }
        return text;
    }
};

TEST_F(MemoryDatabaseTest, StandsInTheStateFolderForItsOwnerAlone) {
    EXPECT_EQ(memory_database_path(), state_.folder() + "/backupd.db");
    struct stat found {};
    ASSERT_EQ(stat(memory_database_path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600U);
    standalone::Statement journal = memory_.runs.prepare("PRAGMA journal_mode");
    journal.step();
    EXPECT_EQ(journal.text(0), "wal");
}

TEST_F(MemoryDatabaseTest, SchedulesAreOnDiskAtOnceAndWhatRunsNoteLater) {
    const auto synchronous = [](Database& database) {
        standalone::Statement row = database.prepare("PRAGMA synchronous");
        row.step();
        return row.integer(0);
    };
    EXPECT_EQ(synchronous(memory_.schedules), 3) << "EXTRA";
    EXPECT_EQ(synchronous(memory_.runs), 1) << "NORMAL";
}

TEST_F(MemoryDatabaseTest, KeepsWhatItHoldsWhenMadeAgain) {
    remember("1");
    open_memory();
    EXPECT_EQ(remembered(), "1 | 1 | 1 | 1 | 1 | 1 | ");
}

TEST_F(MemoryDatabaseTest, IsRefusedWhenANewerProgramMadeIt) {
    memory_.runs.run("PRAGMA user_version = 5");
    EXPECT_THROW(open_memory(), std::runtime_error);
}

/// Who upgrades copies the state first and then brings config.db up to date; until then the daemon
/// refuses it, and has not touched its own database, of which there may be no copy yet.
TEST_F(MemoryDatabaseTest, ChangesItsSchemaOnlyTogetherWithTheConfiguration) {
    standalone::Statement number = memory_.runs.prepare("PRAGMA user_version");
    ASSERT_TRUE(number.step());
    EXPECT_EQ(number.integer(0), static_cast<long long>(standalone::config_migrations().size()));
}

/// backupd.db as the first schema has it, with copies at two addresses and a run that ended at noon
/// of UTC. Where the recorder is, the next day had begun by then.
class FirstSchema : public StateTest {
protected:
    FirstSchema() {
        setenv("TZ", "EAST-14", 1);
        tzset();
        const std::string sql = read_file(MEMORY_SCHEMAS_FOLDER "/memory_schema_1.sql");
        standalone::migrate(memory_database_path(), std::array{sql.c_str()});
        Database old(memory_database_path(), Database::Access::writing);
        old.run(
            "INSERT INTO copied_file (destination, path, taskID, day, size, modified_ns, sha256, "
            "side_file, removed) VALUES "
            "('//nas:445/a', 'Door/2024-03-01/1.mp4', 1, '2024-03-01', 5, 6, 'ab', 1, 0), "
            "('//nas:445/a', 'Door/2024-03-01/2.mp4', 2, '2024-03-01', 7, 8, '', 0, 1), "
            "('//nas:445/b', 'Door/2024-03-01/1.mp4', 1, '2024-03-01', 5, 6, '', 0, 0); "
            "INSERT INTO checkpoint (taskID, destination, path, temporary, offset, sha256) VALUES "
            "(1, '//nas:445/a', 'p', 't', 9, 'cd'), (1, '//nas:445/c', 'q', 'u', 0, ''); "
            "INSERT INTO run_progress (taskID, bytes_planned, bytes_done, percent, rate, "
            "files_done, files_left, files_failed, message, time_ms) VALUES "
            "(1, 0, 0, 0, 0, 0, 0, 0, '', 1709294400000)");
    }
    ~FirstSchema() override {
        unsetenv("TZ");
        tzset();
    }

    /// The identifier that an address has got.
    static std::string destination(Database& database, const std::string& address) {
        standalone::Statement row = database.prepare(
            "SELECT id FROM destination_address JOIN destination USING (id) "
            "WHERE address = ? AND marked = 0 AND folders_known = 0");
        return row.bind(1, address).step() ? row.text(0) : "";
    }
};

TEST_F(FirstSchema, EveryAddressBecomesADestinationThatKeepsItsCopiesAndCheckpoints) {
    Memory memory = open_memory();
    const std::string a = destination(memory.runs, "//nas:445/a");
    const std::string b = destination(memory.runs, "//nas:445/b");
    EXPECT_EQ(a.size(), 32U);
    EXPECT_EQ(a.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(a, b);
    CopyStore store(memory.runs, "1", a);
    const auto copies = store.copied_in("Door/2024-03-01/");
    ASSERT_EQ(copies.size(), 2U);
    EXPECT_EQ(copies.at("Door/2024-03-01/1.mp4").size, 5);
    EXPECT_EQ(copies.at("Door/2024-03-01/1.mp4").sha256, "ab");
    EXPECT_TRUE(copies.at("Door/2024-03-01/2.mp4").removed);
    EXPECT_FALSE(copies.at("Door/2024-03-01/1.mp4").share_modified_ns);
    EXPECT_EQ(store.checkpoint("p")->temporary, "t");
    EXPECT_EQ(CopyStore(memory.runs, "1", b).copied_in("Door/2024-03-01/").size(), 1U);
    const std::string c = destination(memory.runs, "//nas:445/c");
    EXPECT_TRUE(CopyStore(memory.runs, "1", c).checkpoint("q")) << "begun, and nothing copied";
}

TEST_F(FirstSchema, DayOfATasksLastRunIsTrusted) {
    Memory memory = open_memory();
    EXPECT_EQ(CopyStore(memory.runs, "1").date(), TaskDate{.trusted = "2024-03-02"});
    EXPECT_FALSE(CopyStore(memory.runs, "2").date()) << "it has never run";
}

TEST_F(FirstSchema, IsBroughtUpToDateOnce) {
    Memory memory = open_memory();
    const std::string a = destination(memory.runs, "//nas:445/a");
    EXPECT_NE(a, "");
    open_memory();
    EXPECT_EQ(destination(memory.runs, "//nas:445/a"), a);
}

/// backupd.db as the version before the history left it, with a copy and a next run.
TEST(SchemaBeforeTheHistory, IsBroughtUpToDateAndKeepsWhatItHas) {
    TemporaryState state;
    const std::vector<std::string> sql = {read_file(MEMORY_SCHEMAS_FOLDER "/memory_schema_1.sql"),
                                          read_file(MEMORY_SCHEMAS_FOLDER "/memory_schema_2.sql"),
                                          read_file(MEMORY_SCHEMAS_FOLDER "/memory_schema_3.sql")};
    standalone::migrate(memory_database_path(),
                        std::array{sql[0].c_str(), sql[1].c_str(), sql[2].c_str()});
    {
        Database old(memory_database_path(), Database::Access::writing);
        CopiedFile file;
        file.path = "Door/copied";
        CopyStore(old, "1", "d").record(file);
        ScheduleStore(old).write({{"1", NextRun{"rule", 7}}});
    }
    Memory memory = open_memory();
    EXPECT_EQ(CopyStore(memory.runs, "1", "d").copied_in("Door/").size(), 1U);
    EXPECT_EQ(ScheduleStore(memory.schedules).all().at("1").due, 7);
    standalone::RunRecords records(memory.runs);
    records.list({}, [](const standalone::RunRecord& run) { ADD_FAILURE() << run.task_id; });
    RunHistory(memory.schedules).open("1", "Doors", standalone::RunCause::hand, 8);
    EXPECT_EQ(records.newest("1")->number, 1);
}

TEST_F(MemoryDatabaseTest, WhatIsRememberedOfATaskThatIsGoneGoesButItsFilesOnShares) {
    for (const char* task_id : {"1", "2", "12"}) remember(task_id);
    keep_only(memory_, tasks({"12", "1", "7"}));
    EXPECT_EQ(remembered(), "1 12 | 1 12 | 1 2 12 | 1 12 | 1 12 | 1 2 12 | ");
    keep_only(memory_, {});
    EXPECT_EQ(remembered(), "| | 1 2 12 | | | 1 2 12 | ");
}

/// A state that was put back may give an identifier to another task.
TEST_F(MemoryDatabaseTest, WhatATaskThatIsGoneCameToIsNoOtherTasks) {
    RunHistory history(memory_.runs);
    HealthStore store(memory_.runs);
    for (const char* task_id : {"1", "2"}) {
        history.open(task_id, "Doors", standalone::RunCause::hand, 100);
        history.close(task_id, {standalone::RunOutcome::success, "", 110});
        standalone::TaskHealth health = store.all().at(task_id);
        health.overdue_from = health.late_from = health.first_due = 200;
        health.rule = "rule";
        store.write({{task_id, health}});
    }
    memory_.runs.run("UPDATE task_health SET success_goal = 'goal'");
    const standalone::TaskHealth kept = store.all().at("1");
    keep_only(memory_, tasks({"1"}));
    EXPECT_EQ(store.all().at("1"), kept);
    standalone::TaskHealth nothing;
    nothing.first_run = 2;
    EXPECT_EQ(store.all().at("2"), nothing);
    history.open("2", "Yard", standalone::RunCause::hand, 300);
    EXPECT_EQ(standalone::RunRecords(memory_.runs).newest("2")->number, 2);
}

TEST_F(MemoryDatabaseTest, FilesThatATaskHadBegunWhenItWasDeletedAreAbandoned) {
    for (const char* task_id : {"1", "2"}) remember(task_id);
    CopyStore copies(memory_.runs, "1", "//d");
    keep_only(memory_, tasks({"1", "2"}));
    EXPECT_TRUE(copies.abandoned().empty());
    keep_only(memory_, tasks({"1"}));
    ASSERT_EQ(copies.abandoned().size(), 1U);
    EXPECT_EQ(copies.abandoned()[0].path, "begun by 2");
    EXPECT_TRUE(CopyStore(memory_.runs, "1", "//e").abandoned().empty()) << "at another place";
    EXPECT_TRUE(CopyStore(memory_.runs, "2", "//d").abandoned().empty()) << "its own";
    EXPECT_EQ(CopyStore(memory_.runs, "2", "//d").checkpoints().size(), 1U);
    copies.drop_abandoned("t");
    EXPECT_TRUE(copies.abandoned().empty());
    EXPECT_EQ(copies.checkpoints().size(), 1U) << "of the same name, and not abandoned";
}

TEST_F(MemoryDatabaseTest, FilesOfATaskThatIsThereAgainAreItsOwn) {
    remember("2");
    keep_only(memory_, tasks({"1"}));
    EXPECT_EQ(CopyStore(memory_.runs, "1", "//d").abandoned().size(), 1U);
    keep_only(memory_, tasks({"1", "2"}));
    EXPECT_TRUE(CopyStore(memory_.runs, "1", "//d").abandoned().empty());
}

TEST_F(MemoryDatabaseTest, NobodyIsWaitedForWhenNoTaskIsGone) {
    remember("1");
    memory_.runs.limit_waiting(std::chrono::milliseconds(1));
    Database other(memory_database_path(), Database::Access::writing);
    const standalone::Transaction writer(other);
    keep_only(memory_, tasks({"1"}));
    EXPECT_THROW(keep_only(memory_, {}), standalone::DatabaseError);
}

TEST_F(MemoryDatabaseTest, WhatARunWritesAfterItsTaskIsGoneGoesTheNextTime) {
    remember("1");
    keep_only(memory_, {});
    CopyStore(memory_.runs, "1", "//d").save({"late", "t", 1, ""});
    ProgressStore(memory_.runs).set("1", {});
    keep_only(memory_, {});
    EXPECT_EQ(remembered(), "| | 1 1 | | | 1 | ");
    EXPECT_EQ(CopyStore(memory_.runs, "2", "//d").abandoned().size(), 2U);
}

TEST_F(MemoryDatabaseTest, NothingIsWrittenWhenNoTaskIsGone) {
    remember("1");
    const std::string log = memory_database_path() + "-wal";
    const auto size = std::filesystem::file_size(log);
    const std::string content = read_file(log);
    for (int round = 0; round < 10; ++round) keep_only(memory_, tasks({"1"}));
    EXPECT_EQ(std::filesystem::file_size(log), size);
    EXPECT_EQ(read_file(log), content);
}

}  // namespace
