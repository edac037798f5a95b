// Which copies are to be compared once more, and what is recorded of them otherwise.
#include "services/backup_daemon/memory/recheck.h"

#include <gtest/gtest.h>

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

    static CopiedFile copy(CopyStore& store, const std::string& name) {
        return store.copied_in(FOLDER).at(FOLDER + name);
    }

    CopyStore store_{memory_.runs, "1", "a"};
    CopyStore other_task_{memory_.runs, "2", "a"};
    CopyStore other_place_{memory_.runs, "1", "b"};
};

TEST_F(RecheckTest, AllCopiesAreDoubtedThatAreOnAShare) {
    EXPECT_EQ(recheck(memory_.runs, std::nullopt), 3);
    EXPECT_TRUE(copy(store_, "1.mp4").doubted);
    EXPECT_TRUE(copy(store_, "2.mp4").doubted);
    EXPECT_TRUE(copy(other_place_, "3.mp4").doubted);
    EXPECT_FALSE(copy(store_, "gone.mp4").doubted);
}

TEST_F(RecheckTest, TheCopiesOfOneTaskAreDoubtedAtAllItsDestinations) {
    EXPECT_EQ(recheck(memory_.runs, "1"), 2);
    EXPECT_TRUE(copy(store_, "1.mp4").doubted);
    EXPECT_FALSE(copy(store_, "2.mp4").doubted);
    EXPECT_TRUE(copy(other_place_, "3.mp4").doubted);
    EXPECT_EQ(recheck(memory_.runs, "3"), 0);
}

TEST_F(RecheckTest, WhatElseIsKnownOfACopyStays) {
    recheck(memory_.runs, std::nullopt);
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
    EXPECT_EQ(recheck(memory_.runs, std::nullopt), 3);
    EXPECT_EQ(store_.spoilt().size(), 1U);
    EXPECT_TRUE(copy(store_, "1.mp4").doubted);
}

}  // namespace
