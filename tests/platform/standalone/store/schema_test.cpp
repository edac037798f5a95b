// Making and migrating the stand-alone databases, and the folder they stand in.
#include "platform/standalone/store/schema.h"

#include <sys/stat.h>

#include <array>

#include "platform/standalone/store/key_value_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

constexpr std::array steps = {"CREATE TABLE a (x); INSERT INTO a VALUES (1)",
                              "ALTER TABLE a ADD COLUMN y DEFAULT 2", "CREATE TABLE b (z)"};
constexpr std::array broken_steps = {steps[0], steps[1], "CREATE TABLE b (z); nonsense"};

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

TEST_F(SchemaTest, TakesAnOldDatabaseThroughTheStepsItLacks) {
    migrate(path_, Migrations(steps).first(1));
    EXPECT_EQ(number(), 1);
    migrate(path_, steps);
    EXPECT_EQ(number(), 3);
    EXPECT_EQ(ask("SELECT x FROM a"), 1);
    EXPECT_EQ(ask("SELECT y FROM a"), 2);
    EXPECT_EQ(ask("SELECT count(*) FROM b"), 0);
}

TEST_F(SchemaTest, LeavesACurrentDatabaseAlone) {
    migrate(path_, steps);
    migrate(path_, steps);
    EXPECT_EQ(number(), 3);
    EXPECT_EQ(ask("SELECT count(*) FROM a"), 1);
}

TEST_F(SchemaTest, RefusesANewerDatabaseAndChangesNothing) {
    migrate(path_, steps);
    try {
        migrate(path_, Migrations(steps).first(2));
        FAIL() << "a newer database was accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(
            std::string(error.what()),
            path_ + " has schema 3, this program knows schemas up to 2; use the newer program");
    }
    EXPECT_EQ(number(), 3);
}

TEST_F(SchemaTest, LeavesADatabaseAsItWasWhenAStepFails) {
    migrate(path_, Migrations(steps).first(1));
    EXPECT_THROW(migrate(path_, broken_steps), std::runtime_error);
    EXPECT_EQ(number(), 1);
    EXPECT_THROW(ask("SELECT y FROM a"), DatabaseError);
}

TEST_F(SchemaTest, RefusesAFileThatIsNoDatabase) {
    write_file(path_, std::string(5000, 'x'));
    EXPECT_THROW(migrate(path_, steps), std::runtime_error);
    EXPECT_EQ(read_file(path_), std::string(5000, 'x'));
}

TEST_F(SchemaTest, TellsOldAndNewDatabasesFromCurrentOnes) {
    migrate(path_, Migrations(steps).first(2));
    Database database(path_, Database::Access::reading);
    EXPECT_NO_THROW(require_current(database, path_, Migrations(steps).first(2)));
    EXPECT_THROW(require_current(database, path_, steps), std::runtime_error);
    EXPECT_THROW(require_current(database, path_, Migrations(steps).first(1)), std::runtime_error);
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

}  // namespace
