// Making and migrating the stand-alone databases, and the folder they stand in.
#include "platform/standalone/store/schema.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/key_value_store.h"
#include "platform/standalone/store/task_store.h"
#include "platform/standalone/store/user_store.h"
#include "tests/support/older_state.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

constexpr std::array STEPS = {"CREATE TABLE a (x); INSERT INTO a VALUES (1)",
                              "ALTER TABLE a ADD COLUMN y DEFAULT 2", "CREATE TABLE b (z)"};
constexpr std::array BROKEN_STEPS = {STEPS[0], STEPS[1], "CREATE TABLE b (z); nonsense"};

class SchemaTest : public ::testing::Test {
protected:
    long long ask(const char* sql) const {
        Database database(path_, Database::Access::reading);
        Statement row = database.prepare(sql);
        return row.step() ? row.integer(0) : -1;
    }
    long long number() const { return ask("PRAGMA user_version"); }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/test.db";
};

mode_t mode_of(const std::string& path) {
    struct stat found {};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 0777;
}

std::string journal_of(const std::string& path) {
    Database database(path, Database::Access::reading);
    Statement row = database.prepare("PRAGMA journal_mode");
    row.step();
    return row.text(0);
}

TEST_F(SchemaTest, TakesAnOldDatabaseThroughTheStepsItLacks) {
    migrate(path_, Migrations(STEPS).first(1));
    EXPECT_EQ(number(), 1);
    migrate(path_, STEPS);
    EXPECT_EQ(number(), 3);
    EXPECT_EQ(ask("SELECT x FROM a"), 1);
    EXPECT_EQ(ask("SELECT y FROM a"), 2);
    EXPECT_EQ(ask("SELECT count(*) FROM b"), 0);
}

TEST_F(SchemaTest, LeavesACurrentDatabaseAlone) {
    migrate(path_, STEPS);
    migrate(path_, STEPS);
    EXPECT_EQ(number(), 3);
    EXPECT_EQ(ask("SELECT count(*) FROM a"), 1);
}

TEST_F(SchemaTest, RefusesANewerDatabaseAndChangesNothing) {
    migrate(path_, STEPS);
    try {
        migrate(path_, Migrations(STEPS).first(2));
        FAIL() << "a newer database was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(
            std::string(error.what()),
            path_ + " has schema 3, this program knows schemas up to 2; use the newer program");
    }
    EXPECT_EQ(number(), 3);
}

TEST_F(SchemaTest, LeavesADatabaseAsItWasWhenAStepFails) {
    migrate(path_, Migrations(STEPS).first(1));
    EXPECT_THROW(migrate(path_, BROKEN_STEPS), std::runtime_error);
    EXPECT_EQ(number(), 1);
    EXPECT_THROW(ask("SELECT y FROM a"), DatabaseError);
}

TEST_F(SchemaTest, RefusesAFileThatIsNoDatabase) {
    write_file(path_, std::string(5000, 'x'));
    EXPECT_THROW(migrate(path_, STEPS), std::runtime_error);
    EXPECT_EQ(read_file(path_), std::string(5000, 'x'));
}

TEST_F(SchemaTest, FollowsNoLinkThatWasPutInADatabasesPlace) {
    const std::string target = folder_.path() + "/target";
    write_file(target, "");
    std::filesystem::permissions(target, std::filesystem::perms(0644));
    std::filesystem::create_symlink(target, path_);
    EXPECT_THROW(migrate(path_, STEPS), std::runtime_error);
    EXPECT_EQ(std::filesystem::file_size(target), 0U);
    EXPECT_EQ(mode_of(target), 0644U);
}

TEST_F(SchemaTest, DatabaseAndItsSideFilesAreForTheirOwnerAlone) {
    const mode_t mask = umask(0);
    write_file(path_, "");
    migrate(path_, STEPS);
    Database database(path_, Database::Access::writing);
    database.run("INSERT INTO b (z) VALUES (1)");
    umask(mask);
    for (const char* suffix : {"", "-wal", "-shm"}) EXPECT_EQ(mode_of(path_ + suffix), 0600U);
}

TEST_F(SchemaTest, DatabaseHasTheJournalThatItWasMadeFor) {
    migrate(path_, STEPS);
    EXPECT_EQ(journal_of(path_), "wal");
    migrate(path_, STEPS, Journal::rollback);
    EXPECT_EQ(journal_of(path_), "delete");
}

TEST_F(SchemaTest, TellsOldAndNewDatabasesFromCurrentOnes) {
    migrate(path_, Migrations(STEPS).first(2));
    Database database(path_, Database::Access::reading);
    EXPECT_NO_THROW(require_current(database, path_, Migrations(STEPS).first(2)));
    EXPECT_THROW(require_current(database, path_, STEPS), std::runtime_error);
    EXPECT_THROW(require_current(database, path_, Migrations(STEPS).first(1)), std::runtime_error);
}

TEST(StateFolder, IsForItsOwnerAlone) {
    const TemporaryFolder parent;
    const std::string folder = parent.path() + "/deep/state";
    setenv("RECORDER_STATE", folder.c_str(), 1);
    make_state();
    EXPECT_EQ(mode_of(folder), 0700U);
    EXPECT_EQ(mode_of(config_database_path()), 0600U);
    EXPECT_EQ(mode_of(registry_database_path()), 0600U);
    EXPECT_EQ(mode_of(event_database_path()), 0600U);
    unsetenv("RECORDER_STATE");
}

TEST(StateFolder, StandsWhereTheEnvironmentSaysOrInTheSystemsPlace) {
    setenv("RECORDER_STATE", "/somewhere", 1);
    EXPECT_EQ(state_folder(), "/somewhere");
    EXPECT_EQ(config_database_path(), "/somewhere/config.db");
    EXPECT_EQ(registry_database_path(), "/somewhere/registry.db");
    EXPECT_EQ(event_database_path(), "/somewhere/events.db");
    setenv("RECORDER_STATE", "", 1);
    EXPECT_EQ(state_folder(), "/var/lib/recorder");
    unsetenv("RECORDER_STATE");
    EXPECT_EQ(state_folder(), "/var/lib/recorder");
}

TEST(StateFolder, DatabasesThatRequestsWriteHaveAWriteAheadLogAndTheRegistryHasNone) {
    const TemporaryState state;
    EXPECT_EQ(journal_of(config_database_path()), "wal");
    EXPECT_EQ(journal_of(event_database_path()), "wal");
    EXPECT_EQ(journal_of(registry_database_path()), "delete");
}

TEST(StateFolder, KeepsWhatItHoldsWhenMadeAgain) {
    const TemporaryState state;
    {
        Database database(registry_database_path(), Database::Access::writing);
        KeyValueStore(database).set("s", "k", "v");
    }
    make_state();
    Database database(registry_database_path(), Database::Access::reading);
    EXPECT_EQ(KeyValueStore(database).get("s", "k"), "v");
}

TEST(StateFolder, IsNotMadeOutOfAFolderThatOthersUse) {
    const TemporaryFolder folder;
    write_file(folder.path() + "/notes.txt", "mine");
    chmod(folder.path().c_str(), 0755);
    setenv("RECORDER_STATE", folder.path().c_str(), 1);
    EXPECT_THROW(make_state(), std::runtime_error);
    EXPECT_EQ(mode_of(folder.path()), 0755U);
    unsetenv("RECORDER_STATE");
}

TEST(StateFolder, OpenFolderOfARecorderOrWithoutContentIsMadePrivate) {
    const TemporaryFolder folder;
    setenv("RECORDER_STATE", folder.path().c_str(), 1);
    for (int round = 0; round < 2; ++round) {
        chmod(folder.path().c_str(), 0755);
        make_state();
        EXPECT_EQ(mode_of(folder.path()), 0700U);
    }
    unsetenv("RECORDER_STATE");
}

TEST(StateFolder, IsNotMadeInAFolderOfSomebodyElse) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    const TemporaryFolder folder;
    ASSERT_EQ(chown(folder.path().c_str(), 65534, 65534), 0);
    chmod(folder.path().c_str(), 0755);
    setenv("RECORDER_STATE", folder.path().c_str(), 1);
    EXPECT_THROW(make_state(), std::runtime_error);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
    unsetenv("RECORDER_STATE");
}

TEST(StateFolder, IsNotMadeWhereAFileIs) {
    const TemporaryFolder folder;
    const std::string file = folder.path() + "/file";
    write_file(file, "mine");
    setenv("RECORDER_STATE", file.c_str(), 1);
    EXPECT_THROW(make_state(), std::runtime_error);
    EXPECT_EQ(read_file(file), "mine");
    unsetenv("RECORDER_STATE");
}

TEST(StateFolder, OfTheVersionBeforeKeepsEverythingAndTheDaemonsRowsForTheDaemon) {
    const OlderState state;
    make_state();
    Database config(config_database_path(), Database::Access::reading);
    EXPECT_NO_THROW(require_current(config, config_database_path(), config_migrations()));
    Statement number = config.prepare("PRAGMA user_version");
    number.step();
    EXPECT_GT(number.integer(0), 2) << "programs of that version must find it too new";
    EXPECT_EQ(TaskStore(config).find("4")->taskName, "Waits für immer");
    const auto queue = TaskStore(config).queue();
    ASSERT_EQ(queue.size(), 1U);
    EXPECT_EQ(queue[0].task_id, "4");
    EXPECT_EQ(ChannelStore(config).list().size(), 4U);
    for (const char* table : {"next_run", "run_progress", "copied_file", "checkpoint"})
        EXPECT_TRUE(config.prepare(std::string("SELECT 1 FROM ") + table).step()) << table;
    Database registry(registry_database_path(), Database::Access::reading);
    EXPECT_EQ(UserStore(registry).list().size(), 2U);
    EXPECT_EQ(KeyValueStore(registry).get("backup", "max_parallel"), "3");
}

}  // namespace
