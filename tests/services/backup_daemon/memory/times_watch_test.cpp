// Changes of schedules and successes, and what is none, by the daemon's connections and strangers.
#include "services/backup_daemon/memory/times_watch.h"

#include <sqlite3.h>

#include "services/backup_daemon/memory/health_store.h"
#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/memory/run_history.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;
using standalone::Database;
using standalone::NextRun;

class TimesWatchTest : public MemoryTest {
protected:
    bool has_changed() {
        const long long before = version_;
        version_ = watch_.version();
        return version_ != before;
    }

    void note_progress() { ProgressStore(memory_.runs).set("1", {}); }

    void put_alert() {
        memory_.schedules.run(
            "INSERT INTO alert (way, id, made, subject, text, object) "
            "VALUES (1, 'id', 0, '', '', '')");
    }

    TimesWatch watch_{memory_};
    RunHistory history_{memory_.runs};
    Database stranger_{memory_database_path(), Database::Access::writing};
    long long version_ = 0;
};

TEST_F(TimesWatchTest, NothingHasChangedWhereNobodyHasWritten) {
    EXPECT_FALSE(has_changed());
}

TEST_F(TimesWatchTest, ProgressOfRunsAndAlertsOnTheirWayAreNoChanges) {
    for (int count = 0; count < 3; ++count) {
        note_progress();
        EXPECT_FALSE(has_changed());
        EXPECT_FALSE(has_changed());
    }
    for (int count = 0; count < 3; ++count) {
        put_alert();
        EXPECT_FALSE(has_changed());
    }
}

TEST_F(TimesWatchTest, NextRunsHealthAndSuccessesAre) {
    ScheduleStore schedules(memory_.schedules);
    schedules.write({{"1", NextRun{"rule", 1}}});
    EXPECT_TRUE(has_changed());
    schedules.write({{"1", NextRun{"rule", 2}}});
    EXPECT_TRUE(has_changed());
    schedules.write({{"1", {}}});
    EXPECT_TRUE(has_changed());
    HealthStore(memory_.schedules).write({{"1", {}}});
    EXPECT_TRUE(has_changed());
    history_.open("1", "Doors", standalone::RunCause::hand, 100);
    has_changed();
    history_.close("1", {standalone::RunOutcome::success, "", 110});
    EXPECT_TRUE(has_changed());
    EXPECT_FALSE(has_changed());
}

TEST_F(TimesWatchTest, StrangersChangeIsSeenAtOnce) {
    HealthStore(memory_.schedules).write({{"1", {}}});
    has_changed();
    stranger_.run("UPDATE task_health SET success_time = 5");
    EXPECT_TRUE(has_changed());
    EXPECT_FALSE(has_changed());
}

TEST_F(TimesWatchTest, StrangersChangeIsSeenBesideTheDaemonsOwn) {
    for (const bool with_progress : {false, true})
        for (const bool with_alert : {false, true}) {
            if (with_progress) note_progress();
            stranger_.run("INSERT OR REPLACE INTO next_run (taskID, rule, due) VALUES (1, '', 5)");
            if (with_alert) put_alert();
            EXPECT_TRUE(has_changed()) << with_progress << with_alert;
        }
}

TEST_F(TimesWatchTest, StrangersChangeBetweenTheTwoConnectionsIsSeenWithTheNextCall) {
    stranger_.run("INSERT INTO next_run (taskID, rule, due) VALUES (1, '', 5)");
    has_changed();
    struct Between {
        Database& stranger;
        int asked = 0;
    } between{.stranger = stranger_};
    // When the second connection is asked, the first one has answered.
    sqlite3_trace_v2(
        memory_.runs.handle(), SQLITE_TRACE_STMT,
        [](unsigned, void* told, void*, void*) {
            auto& what = *static_cast<Between*>(told);
            if (what.asked++ == 0) what.stranger.run("UPDATE next_run SET due = 6");
            return 0;
        },
        &between);
    EXPECT_FALSE(has_changed());
    sqlite3_trace_v2(memory_.runs.handle(), 0, nullptr, nullptr);
    EXPECT_EQ(between.asked, 1);
    EXPECT_TRUE(has_changed());
    EXPECT_FALSE(has_changed());
}

}  // namespace
