// What the store remembers of copies: days, room that was made, checkpoints and their end.
#include "services/backup_daemon/memory/copy_store.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/task_store.h"

using namespace services;
using namespace standalone;

namespace {

std::string make_state_in_new_folder() {
    std::string folder = testing::TempDir() + "copy_store_XXXXXX";
    if (!mkdtemp(folder.data())) throw std::runtime_error("mkdtemp");
    setenv("RECORDER_STATE", folder.c_str(), 1);
    make_state();
    return folder;
}

class CopyStoreTest : public testing::Test {
protected:
    CopyStoreTest() { EXPECT_EQ(tasks.apply_settings(R"({"taskName": "one"})"), 0); }
    ~CopyStoreTest() override { std::filesystem::remove_all(folder); }

    void record(const std::string& task_id, const std::string& day) {
        copies.record(task_id, "//d", {"Door/" + day + "/1.mp4", day, 5, 6, "ab", false, false});
    }

    std::string folder = make_state_in_new_folder();
    Database database{config_database_path(), Database::Access::writing};
    TaskStore tasks{database};
    CopyStore copies{database};
};

TEST_F(CopyStoreTest, TellsTheCopiesOfOneFolder) {
    record("1", "2024-03-01");
    record("1", "2024-03-02");
    const auto found = copies.copied_in("//d", "Door/2024-03-01/");
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.at("Door/2024-03-01/1.mp4").modified_ns, 6);
    EXPECT_TRUE(copies.copied_in("//e", "Door/2024-03-01/").empty());
}

TEST_F(CopyStoreTest, OldCopiesAreTheTasksOwn) {
    record("1", "2024-03-02");
    record("1", "2024-03-01");
    record("2", "2024-02-01");
    EXPECT_EQ(copies.oldest_day("1", "//d"), "2024-03-01");
    const auto old = copies.older_than("1", "//d", "2024-03-02", 10);
    ASSERT_EQ(old.size(), 1U);
    EXPECT_EQ(old[0].day, "2024-03-01");
    EXPECT_EQ(copies.oldest_day("3", "//d"), "");
}

TEST_F(CopyStoreTest, CopyThatMadeRoomIsRememberedAndAnOldOneForgotten) {
    record("1", "2024-03-01");
    record("1", "2024-03-02");
    copies.forget("//d", "Door/2024-03-01/1.mp4", true);
    copies.forget("//d", "Door/2024-03-02/1.mp4", false);
    EXPECT_TRUE(copies.copied_in("//d", "Door/2024-03-01/").begin()->second.removed);
    EXPECT_TRUE(copies.copied_in("//d", "Door/2024-03-02/").empty());
    EXPECT_EQ(copies.oldest_day("1", "//d"), "");
}

TEST_F(CopyStoreTest, RecordingACopyEndsItsCheckpoint) {
    copies.save("1", "//d", {"Door/2024-03-01/1.mp4", "t", 0, ""});
    copies.save("1", "//d", {"Door/2024-03-01/1.mp4", "t", 8, "cd"});
    EXPECT_EQ(copies.checkpoint("1", "//d", "Door/2024-03-01/1.mp4")->offset, 8);
    EXPECT_EQ(copies.checkpoints("1", "//d").size(), 1U);
    record("1", "2024-03-01");
    EXPECT_FALSE(copies.checkpoint("1", "//d", "Door/2024-03-01/1.mp4"));
}

TEST_F(CopyStoreTest, DeletedTaskLosesItsCheckpointsAndKeepsItsCopies) {
    copies.save("1", "//d", {"p", "t", 8, ""});
    record("1", "2024-03-01");
    tasks.remove("1");
    EXPECT_TRUE(copies.checkpoints("1", "//d").empty());
    copies.save("1", "//d", {"p", "t", 9, ""});
    EXPECT_TRUE(copies.checkpoints("1", "//d").empty());
    EXPECT_EQ(copies.copied_in("//d", "Door/2024-03-01/").size(), 1U);
}

}  // namespace
