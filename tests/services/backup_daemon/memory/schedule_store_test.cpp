// Next runs: one a task, replaced and forgotten without touching others.
#include "services/backup_daemon/memory/schedule_store.h"

#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using standalone::NextRun;

class ScheduleStoreTest : public MemoryTest {
protected:
    ScheduleStore store_{memory_.schedules};
};

TEST_F(ScheduleStoreTest, NewerNextRunTakesThePlaceOfTheOlder) {
    EXPECT_EQ(store_.all(), ScheduleStore::NextRuns());
    store_.write({{"1", NextRun{"daily", 100}}});
    store_.write({{"1", NextRun{"weekly", 5'000'000'000}}});
    EXPECT_EQ(store_.all(), (ScheduleStore::NextRuns{{"1", {"weekly", 5'000'000'000}}}));
}

TEST_F(ScheduleStoreTest, EachTaskHasItsOwn) {
    store_.write({{"1", NextRun{"a", 100}}, {"11", NextRun{"b", 200}}});
    const ScheduleStore::NextRuns second = {{"11", {"b", 200}}};
    store_.write({{"1", {}}, {"12", {}}});
    EXPECT_EQ(store_.all(), second);
    store_.write({{"1", {}}});
    EXPECT_EQ(store_.all(), second);
}

TEST_F(ScheduleStoreTest, AllAreWrittenOrNone) {
    store_.write({{"1", NextRun{"a", 100}}});
    memory_.schedules.run(
        "CREATE TRIGGER refuse BEFORE INSERT ON next_run WHEN new.taskID = 3 "
        "BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_THROW(store_.write({{"1", {}}, {"2", NextRun{"b", 2}}, {"3", NextRun{"c", 3}}}),
                 standalone::DatabaseError);
    EXPECT_EQ(store_.all(), (ScheduleStore::NextRuns{{"1", {"a", 100}}}));
}

}  // namespace
