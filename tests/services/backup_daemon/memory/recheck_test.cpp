// Which copies are to be compared once more, and what is recorded of them otherwise.
#include "services/backup_daemon/memory/recheck.h"

#include <gtest/gtest.h>

#include <chrono>

#include "services/backup_daemon/memory/copy_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;

constexpr char FOLDER[] = "Door/2024-03-01/";

class RecheckTest : public MemoryTest {
protected:
    RecheckTest() {
        record(store_, "1.mp4");
        record(store_, "gone.mp4");
        record(other_task_, "2.mp4");
        record(other_place_, "3.mp4");
        store_.mark_removed(FOLDER + std::string("gone.mp4"));
    }

    static void record(CopyStore& store, const std::string& name) {
        store.record({.path = FOLDER + name,
                      .day = "2024-03-01",
                      .size = 5,
                      .modified_ns = 6,
                      .sha256 = "ab",
                      .share_modified_ns = 7});
    }

    int recheck_at_once(const std::optional<std::string>& task_id) {
        return recheck(memory_.runs, task_id, [] { ADD_FAILURE() << "it would rest"; });
    }

    static CopiedFile copy(CopyStore& store, const std::string& name) {
        return store.copied_in(FOLDER).at(FOLDER + name);
    }

    CopyStore store_{memory_.runs, "1", "a"};
    CopyStore other_task_{memory_.runs, "2", "a"};
    CopyStore other_place_{memory_.runs, "1", "b"};
};

TEST_F(RecheckTest, AllCopiesAreDoubtedThatAreOnAShare) {
    EXPECT_EQ(recheck_at_once(std::nullopt), 3);
    EXPECT_TRUE(copy(store_, "1.mp4").doubted);
    EXPECT_TRUE(copy(store_, "2.mp4").doubted);
    EXPECT_TRUE(copy(other_place_, "3.mp4").doubted);
    EXPECT_FALSE(copy(store_, "gone.mp4").doubted);
}

TEST_F(RecheckTest, TheCopiesOfOneTaskAreDoubtedAtAllItsDestinations) {
    EXPECT_EQ(recheck_at_once("1"), 2);
    EXPECT_TRUE(copy(store_, "1.mp4").doubted);
    EXPECT_FALSE(copy(store_, "2.mp4").doubted);
    EXPECT_TRUE(copy(other_place_, "3.mp4").doubted);
    EXPECT_EQ(recheck_at_once("3"), 0);
}

TEST_F(RecheckTest, WhatElseIsKnownOfACopyStays) {
    recheck_at_once(std::nullopt);
    const CopiedFile doubted = copy(store_, "1.mp4");
    EXPECT_EQ(doubted.size, 5);
    EXPECT_EQ(doubted.modified_ns, 6);
    EXPECT_EQ(doubted.sha256, "ab");
    EXPECT_EQ(doubted.share_modified_ns, 7);
    EXPECT_TRUE(store_.spoilt().empty());
    EXPECT_TRUE(store_.sample().copies.empty()) << "all of them are compared";
}

TEST_F(RecheckTest, SpoiltCopyCountsAndStaysSpoilt) {
    store_.doubt(FOLDER + std::string("1.mp4"), FOLDER);
    EXPECT_EQ(recheck_at_once(std::nullopt), 3);
    EXPECT_EQ(store_.spoilt().size(), 1U);
    EXPECT_TRUE(copy(store_, "1.mp4").doubted);
}

TEST_F(RecheckTest, DaemonMayWriteBetweenBatchesOfManyCopies) {
    constexpr int MANY = 2 * RECHECKED_AT_ONCE;
    {
        standalone::Transaction transaction(memory_.schedules);
        standalone::Statement insert = memory_.schedules.prepare(
            "INSERT INTO copied_file (destination, path, taskID, day, size, modified_ns, sha256, "
            "side_file) VALUES ('m', ?, ?, '2024-03-01', 5, 6, '', 0)");
        for (int number = 0; number < MANY; ++number) {
            insert.bind(1, std::to_string(number)).bind(2, 1 + number % 2).step();
            insert.reset();
        }
        transaction.commit();
    }
    memory_.runs.limit_waiting(std::chrono::milliseconds(0));
    int rests = 0;
    const auto write = [&] {
        ++rests;
        record(store_, std::to_string(rests) + " of the daemon.mp4");
    };
    EXPECT_EQ(recheck(memory_.schedules, "2", write), MANY / 2 + 1);
    EXPECT_EQ(rests, 2);
    EXPECT_EQ(recheck(memory_.schedules, std::nullopt, [] {}), MANY + 3 + rests);
}

}  // namespace
