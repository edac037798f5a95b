// The mark of the recorder's state lasts a minute at most: the clock alone changes what is so.
#include "console/state_mark.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/journal_room.h"
#include "platform/standalone/store/state_folder.h"
#include "tests/support/temporary_state.h"

namespace {

using console::state_mark;

TEST(StateMark, LastsUntilTheMinuteIsOver) {
    const TemporaryState state;
    constexpr long long BEGIN = 1'700'000'040;
    static_assert(BEGIN % 60 == 0);
    const std::string mark = state_mark(BEGIN);
    EXPECT_EQ(state_mark(BEGIN + 59), mark);
    EXPECT_NE(state_mark(BEGIN + 60), mark);
    EXPECT_NE(state_mark(BEGIN - 1), mark);
}

/// A file's time may be as coarse as the kernel's clock ticks, and its length stays.
TEST(StateMark, ChangesWithTwoChangesInOneTick) {
    using standalone::Database;
    const TemporaryState state;
    const std::string path = standalone::config_database_path();
    Database keeper(path, Database::Access::writing);
    standalone::make_room_in_journal(keeper);
    keeper.run("PRAGMA user_version = 1000");
    const auto tick = std::filesystem::last_write_time(path + "-wal");
    const std::string mark = state_mark(0);
    EXPECT_EQ(state_mark(0), mark);
    keeper.run("PRAGMA user_version = 1001");
    std::filesystem::last_write_time(path + "-wal", tick);
    EXPECT_NE(state_mark(0), mark);
}

}  // namespace
