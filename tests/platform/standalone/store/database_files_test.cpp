// Which folders a change flushes, and where a database's journal lies.
#include "platform/standalone/store/database_files.h"

#include <sqlite3.h>

#include <array>
#include <filesystem>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/journal_room.h"
#include "platform/standalone/store/schema.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;
using Access = Database::Access;

constexpr std::array STEPS = {"CREATE TABLE thing (id INTEGER PRIMARY KEY)"};
constexpr char CHANGE[] = "INSERT INTO thing DEFAULT VALUES";
constexpr char EMPTY_THE_JOURNAL[] = "PRAGMA wal_checkpoint(TRUNCATE)";

using OpenFolder = int (*)(const char*, int*);
OpenFolder open_folder = nullptr;
int opened_folders = 0;

int count_and_open(const char* path, int* folder) {
    ++opened_folders;
    return open_folder(path, folder);
}

/// SQLite opens a folder for nothing but to flush it.
class DatabaseFilesTest : public testing::Test {
protected:
    DatabaseFilesTest() {
        migrate(path_, STEPS);
        sqlite3_vfs* files = sqlite3_vfs_find(nullptr);
        open_folder = reinterpret_cast<OpenFolder>(files->xGetSystemCall(files, "openDirectory"));
        files->xSetSystemCall(files, "openDirectory",
                              reinterpret_cast<sqlite3_syscall_ptr>(count_and_open));
    }
    ~DatabaseFilesTest() override {
        sqlite3_vfs* files = sqlite3_vfs_find(nullptr);
        files->xSetSystemCall(files, "openDirectory", nullptr);
    }

    static void read(Database& database) { database.prepare("SELECT 1 FROM thing").step(); }

    int folders_flushed_by_a_change() const {
        Database writer(path_, Access::writing);
        opened_folders = 0;
        writer.run(CHANGE);
        return opened_folders;
    }

    std::uintmax_t journal_size() const { return std::filesystem::file_size(path_ + "-wal"); }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/test.db";
};

TEST_F(DatabaseFilesTest, FirstChangeInAJournalThatAReaderMadeFlushesItsNameAndLaterOnesDoNot) {
    Database reader(path_, Access::reading);
    read(reader);
    ASSERT_EQ(journal_size(), 0U);
    EXPECT_EQ(folders_flushed_by_a_change(), 1);
    EXPECT_EQ(folders_flushed_by_a_change(), 0);
    EXPECT_EQ(folders_flushed_by_a_change(), 0);
}

TEST_F(DatabaseFilesTest, NewJournalIsFlushedByWhoMakesIt) {
    ASSERT_FALSE(std::filesystem::exists(path_ + "-wal"));
    EXPECT_EQ(folders_flushed_by_a_change(), 1);
    ASSERT_FALSE(std::filesystem::exists(path_ + "-wal")) << "its last connection has ended";
    EXPECT_EQ(folders_flushed_by_a_change(), 1);
}

TEST_F(DatabaseFilesTest, JournalWithoutAChangeIsNotTakenForFlushed) {
    Database reader(path_, Access::reading);
    read(reader);
    std::filesystem::resize_file(path_ + "-wal", 32);  // whoever made it was killed before a flush
    EXPECT_EQ(folders_flushed_by_a_change(), 1);
}

TEST_F(DatabaseFilesTest, JournalWithRoomForChangesIsNotTakenForFlushedBeforeTheFirst) {
    Database reader(path_, Access::reading);
    make_room_in_journal(reader);
    EXPECT_EQ(folders_flushed_by_a_change(), 1);
    EXPECT_EQ(folders_flushed_by_a_change(), 0);
}

TEST_F(DatabaseFilesTest, JournalThatWasEmptiedIsWrittenOn) {
    Database keeper(path_, Access::writing);
    keeper.run(CHANGE);
    keeper.run(EMPTY_THE_JOURNAL);
    ASSERT_EQ(journal_size(), 0U);
    EXPECT_EQ(folders_flushed_by_a_change(), 1);
    Statement count = keeper.prepare("SELECT count(*) FROM thing");
    ASSERT_TRUE(count.step());
    EXPECT_EQ(count.integer(0), 2);
}

TEST_F(DatabaseFilesTest, JournalOfALinkedDatabaseLiesBesideTheDatabase) {
    const std::string link = folder_.path() + "/link.db";
    std::filesystem::create_symlink(path_, link);
    Database linked(link, Access::writing);
    linked.run(CHANGE);
    EXPECT_TRUE(std::filesystem::exists(path_ + "-wal"));
    EXPECT_FALSE(std::filesystem::exists(link + "-wal"));
}

TEST_F(DatabaseFilesTest, RelativePathIsOneFromHere) {
    const auto here = std::filesystem::current_path();
    std::filesystem::current_path(folder_.path());
    Database relative("test.db", Access::writing);
    std::filesystem::current_path(here);
    relative.run(CHANGE);
    EXPECT_GT(journal_size(), 0U);
}

}  // namespace
