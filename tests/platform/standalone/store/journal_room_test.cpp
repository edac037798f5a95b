// What a write-ahead file with room behind its changes holds, and who may make that room.
#include "platform/standalone/store/journal_room.h"

#include <signal.h>
#include <sys/resource.h>

#include <array>
#include <chrono>
#include <filesystem>

#include "platform/standalone/store/schema.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;
using Access = Database::Access;

constexpr std::array STEPS = {"CREATE TABLE thing (id INTEGER PRIMARY KEY)"};
constexpr char CHANGE[] = "INSERT INTO thing DEFAULT VALUES";

/// As long as it lives, this process writes no file beyond so many bytes.
class ShortFiles {
public:
    explicit ShortFiles(rlim_t most) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{.rlim_cur = most, .rlim_max = before_.rlim_max};
        signal(SIGXFSZ, SIG_IGN);
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~ShortFiles() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, SIG_DFL);
    }
    ShortFiles(const ShortFiles&) = delete;
    ShortFiles& operator=(const ShortFiles&) = delete;

private:
    rlimit before_{};
};

class JournalRoomTest : public testing::Test {
protected:
    JournalRoomTest() { migrate(path_, STEPS); }

    std::uintmax_t journal_size() const { return std::filesystem::file_size(path_ + "-wal"); }

    static void change(Database& database, int times) {
        for (int time = 0; time < times; ++time) database.run(CHANGE);
    }

    static long long count(Database& database) {
        Statement things = database.prepare("SELECT count(*) FROM thing");
        things.step();
        return things.integer(0);
    }

    /// What is left after a sudden end: both files, and not SQLite's index of them.
    long long count_after_a_sudden_end() const {
        TemporaryFolder other;
        const std::string copy = other.path() + "/test.db";
        for (const char* part : {"", "-wal"}) std::filesystem::copy_file(path_ + part, copy + part);
        Database found(copy, Access::reading);
        return count(found);
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/test.db";
};

TEST_F(JournalRoomTest, ChangesMakeTheFileNoLongerUntilItIsWrittenOver) {
    Database keeper(path_, Access::writing);
    make_room_in_journal(keeper);
    const auto room = journal_size();
    Database writer(path_, Access::writing, Database::Durability::deferred);
    change(writer, 2500);
    EXPECT_EQ(journal_size(), room);
    EXPECT_EQ(count(keeper), 2500);
}

TEST_F(JournalRoomTest, ChangesFromBeforeAndAfterSurviveASuddenEnd) {
    Database keeper(path_, Access::writing);
    change(keeper, 3);
    make_room_in_journal(keeper);
    EXPECT_EQ(count_after_a_sudden_end(), 3);
    change(keeper, 2);
    EXPECT_EQ(count_after_a_sudden_end(), 5);
}

TEST_F(JournalRoomTest, RoomWithoutAChangeIsAnEmptyJournal) {
    Database keeper(path_, Access::reading);
    make_room_in_journal(keeper);
    EXPECT_GT(journal_size(), 4'000'000U);
    EXPECT_EQ(count_after_a_sudden_end(), 0);
}

TEST_F(JournalRoomTest, FileThatHasTheRoomStaysAsItIs) {
    Database keeper(path_, Access::writing);
    make_room_in_journal(keeper);
    const auto room = journal_size();
    make_room_in_journal(keeper);
    EXPECT_EQ(journal_size(), room);
}

TEST_F(JournalRoomTest, FileThatCannotHaveAllTheRoomStaysAsItIs) {
    Database keeper(path_, Access::writing);
    change(keeper, 1);
    const auto before = journal_size();
    {
        const ShortFiles files(2 * 1024 * 1024);
        make_room_in_journal(keeper);
    }
    EXPECT_EQ(journal_size(), before);
    change(keeper, 1);
    EXPECT_EQ(count_after_a_sudden_end(), 2);
}

TEST_F(JournalRoomTest, NobodyMakesRoomWhileAnotherWrites) {
    Database writer(path_, Access::writing);
    const Transaction writing(writer);
    writer.run(CHANGE);
    Database keeper(path_, Access::reading);
    keeper.limit_waiting(std::chrono::milliseconds(0));
    make_room_in_journal(keeper);
    EXPECT_EQ(journal_size(), 0U);
}

TEST_F(JournalRoomTest, DatabaseWithAnotherKindOfJournalIsLeftAlone) {
    const std::string path = folder_.path() + "/other.db";
    migrate(path, STEPS, Journal::rollback);
    Database keeper(path, Access::writing);
    make_room_in_journal(keeper);
    EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
    EXPECT_FALSE(std::filesystem::exists(path + "-journal"));
    keeper.run(CHANGE);
    EXPECT_EQ(count(keeper), 1);
}

}  // namespace
