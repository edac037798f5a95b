// Next runs: one a task, replaced and forgotten without touching others.
#include "services/backup_daemon/memory/schedule_store.h"

#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;

class ScheduleStoreTest : public MemoryTest {
protected:
    ScheduleStore store_{memory_.schedules};
};

TEST_F(ScheduleStoreTest, NewerNextRunTakesThePlaceOfTheOlder) {
    EXPECT_FALSE(store_.find("1"));
    store_.set("1", {"daily", 100});
    store_.set("1", {"weekly", 5'000'000'000});
    ASSERT_TRUE(store_.find("1"));
    EXPECT_EQ(store_.find("1")->rule, "weekly");
    EXPECT_EQ(store_.find("1")->due, 5'000'000'000);
    EXPECT_EQ(count("next_run"), 1);
}

TEST_F(ScheduleStoreTest, EachTaskHasItsOwn) {
    store_.set("1", {"a", 100});
    store_.set("11", {"b", 200});
    EXPECT_EQ(store_.find("1")->due, 100);
    EXPECT_EQ(store_.find("11")->due, 200);
    store_.clear("1");
    store_.clear("1");
    EXPECT_FALSE(store_.find("1"));
    EXPECT_TRUE(store_.find("11"));
}

}  // namespace
