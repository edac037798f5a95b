// When what deleted tasks left is looked for.
#include "services/backup_daemon/memory/sweeper.h"

#include "services/backup_daemon/memory/progress_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using standalone::Database;
using standalone::TaskStore;

/// Tasks 1 and 2, each of which has run.
class SweeperTest : public MemoryTest {
protected:
    SweeperTest() {
        for (const char* task_id : {"1", "2"}) {
            EXPECT_EQ(tasks_.apply_settings(R"({"taskName": "n"})"), 0);
            ProgressStore(memory_.runs).set(task_id, {});
        }
        sweeper_.look();
    }

    Database config_{standalone::config_database_path(), Database::Access::writing};
    TaskStore tasks_{config_};
    Sweeper sweeper_{tasks_, memory_};
};

TEST_F(SweeperTest, TaskThatAnotherConnectionHasDeletedIsForgotten) {
    EXPECT_EQ(count("run_progress"), 2);
    Database other(standalone::config_database_path(), Database::Access::writing);
    TaskStore(other).remove("1");
    sweeper_.look();
    EXPECT_EQ(count("run_progress"), 1);
}

TEST_F(SweeperTest, WhatADeletedTasksRunWritesAtItsEndIsForgotten) {
    tasks_.remove("1");
    sweeper_.look();
    ProgressStore(memory_.runs).set("1", {});
    sweeper_.look();
    EXPECT_EQ(count("run_progress"), 1);
}

TEST_F(SweeperTest, WhatCannotBeForgottenNowIsWithTheNextLook) {
    memory_.runs.run(
        "CREATE TRIGGER refuse BEFORE DELETE ON run_progress BEGIN SELECT RAISE(ABORT, 'x'); END");
    tasks_.remove("1");
    EXPECT_THROW(sweeper_.look(), standalone::DatabaseError);
    memory_.runs.run("DROP TRIGGER refuse");
    sweeper_.look();
    EXPECT_EQ(count("run_progress"), 1);
}

TEST_F(SweeperTest, NothingIsReadWhileNothingHasChanged) {
    memory_.runs.run("ALTER TABLE run_progress RENAME TO hidden_progress");
    sweeper_.look();
    tasks_.remove("1");
    EXPECT_THROW(sweeper_.look(), standalone::DatabaseError);
}

}  // namespace
