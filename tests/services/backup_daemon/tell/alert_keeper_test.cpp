// Who is told of a problem, when, and how often.
#include "services/backup_daemon/tell/alert_keeper.h"

#include <json-c/json.h>

#include <set>

#include "platform/json_ptr.h"
#include "tests/services/backup_daemon/tell/alert_fixture.h"

namespace {

using namespace services;

using Words = std::vector<std::string>;

constexpr long long DAY = 24LL * 3600;

class AlertKeeperTest : public AlertTest {
protected:
    /// Each look is another keeper's, as after a restart.
    void look() { AlertKeeper(store, memory.schedules, share_of, "rec").look(receivers, now); }

    /// Event and problem of each alert since the last call.
    Words told() {
        auto row = memory.runs.prepare("SELECT object, number, id FROM alert WHERE number > ?");
        row.bind(1, last_);
        Words words;
        while (row.step()) {
            last_ = row.integer(1);
            const JsonPtr object(json_tokener_parse(row.text(0).c_str()));
            words.push_back(member(object, "event") + ' ' + member(object, "problem"));
            EXPECT_EQ(member(object, "id"), row.text(2));
            EXPECT_TRUE(ids_.insert(row.text(2)).second) << "an identifier twice";
        }
        return words;
    }

    static std::string member(const JsonPtr& object, const char* name) {
        return json_object_get_string(json_object_object_get(object.get(), name));
    }

    Words look_and_told() {
        look();
        return told();
    }

    /// A look of one that goes on living, behind which one that has never looked finds nothing.
    Words lasting_look_and_told() {
        lasting_.look(receivers, now);
        const Words words = told();
        const long long changes = memory.schedules.version().own;
        look();
        EXPECT_EQ(memory.schedules.version().own, changes);
        return words;
    }

    std::vector<AlertReceiver> receivers = {{AlertWay::mail, "a@b"}};

private:
    AlertKeeper lasting_{store, memory.schedules, share_of, "rec"};
    long long last_ = 0;
    std::set<std::string> ids_;
};

TEST_F(AlertKeeperTest, NothingIsToldOfNothing) {
    EXPECT_EQ(look_and_told(), Words());
    EXPECT_EQ(count("problem"), 0);
}

TEST_F(AlertKeeperTest, FloodOfFailuresIsOneAlertAndADailyReminder) {
    Words all;
    for (const long long end = now + 3 * DAY; now < end; now += 600) {
        run("1", Outcome::failed, "why");
        for (const std::string& words : look_and_told()) all.push_back(words);
    }
    EXPECT_EQ(all, (Words{"raised run_failed", "reminder run_failed", "reminder run_failed"}));
    run("1", Outcome::success);
    EXPECT_EQ(look_and_told(), Words{"resolved run_failed"});
    EXPECT_EQ(look_and_told(), Words());
    run("1", Outcome::failed, "why");
    EXPECT_EQ(look_and_told(), Words{"raised run_failed"});
}

TEST_F(AlertKeeperTest, EachProblemOfEachTaskIsToldByItself) {
    run("1", Outcome::failed, "why");
    be_due("1", now);
    be_due("2", now);
    EXPECT_EQ(look_and_told(), (Words{"raised run_failed", "raised overdue", "raised overdue"}));
    run("1", Outcome::success);
    EXPECT_EQ(look_and_told(), Words{"resolved run_failed"});
}

TEST_F(AlertKeeperTest, EachWayGetsTheAlertUnderOneIdentifier) {
    receivers = {{AlertWay::mail, "a@b"}, {AlertWay::web_hook, ""}};
    run("1", Outcome::failed, "why");
    look();
    auto row = memory.runs.prepare("SELECT count(*), count(DISTINCT id) FROM alert");
    row.step();
    EXPECT_EQ(row.integer(0), 2);
    EXPECT_EQ(row.integer(1), 1);
}

TEST_F(AlertKeeperTest, AlertsOfAProblemStandForOneAnother) {
    run("1", Outcome::failed, "why");
    run("2", Outcome::failed, "why");
    look();
    run("1", Outcome::success);
    look();
    auto row = memory.runs.prepare("SELECT about, count(*) FROM alert GROUP BY about");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.text(0), "run_failed 1");
    EXPECT_EQ(row.integer(1), 2);
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.text(0), "run_failed 2");
    EXPECT_EQ(row.integer(1), 1);
}

TEST_F(AlertKeeperTest, OpenProblemsAreToldWhenSomebodyIsThereToBeTold) {
    receivers.clear();
    run("1", Outcome::failed, "why");
    run("2", Outcome::failed, "why");
    EXPECT_EQ(look_and_told(), Words());
    EXPECT_EQ(count("problem"), 2);
    run("2", Outcome::success);
    now += 3 * DAY;
    EXPECT_EQ(look_and_told(), Words()) << "nobody knows of it, so nobody is told that it is over";
    receivers = {{AlertWay::web_hook, ""}};
    EXPECT_EQ(look_and_told(), Words{"raised run_failed"});
    receivers.clear();
    now += 2 * DAY;
    EXPECT_EQ(look_and_told(), Words());
    receivers = {{AlertWay::mail, "a@b"}};
    EXPECT_EQ(look_and_told(), Words{"reminder run_failed"});
}

TEST_F(AlertKeeperTest, ClockThatIsSetBackSilencesNobodyForLongerThanADay) {
    run("1", Outcome::failed, "why");
    EXPECT_EQ(look_and_told(), Words{"raised run_failed"});
    now -= 300 * DAY;
    EXPECT_EQ(look_and_told(), Words()) << "nor is anything told again for it";
    now += DAY - 1;
    EXPECT_EQ(look_and_told(), Words());
    now += 1;
    EXPECT_EQ(look_and_told(), Words{"reminder run_failed"});
}

TEST_F(AlertKeeperTest, WhatCannotBePutIsToldWithTheNextLookAndNotTwice) {
    run("1", Outcome::failed, "why");
    run("2", Outcome::failed, "why");
    memory.runs.run(
        "CREATE TRIGGER refuse BEFORE INSERT ON alert WHEN new.subject LIKE '%Yard%' "
        "BEGIN SELECT RAISE(ABORT, 'no room'); END");
    EXPECT_THROW(look(), standalone::DatabaseError);
    EXPECT_EQ(count("problem"), 0);
    EXPECT_EQ(count("alert"), 0) << "what was put before it is taken back";
    memory.runs.run("DROP TRIGGER refuse");
    EXPECT_EQ(look_and_told(), (Words{"raised run_failed", "raised run_failed"}));
    run("1", Outcome::success);
    memory.runs.run(
        "CREATE TRIGGER refuse BEFORE INSERT ON alert BEGIN SELECT RAISE(ABORT, 'no room'); END");
    EXPECT_THROW(look(), standalone::DatabaseError);
    EXPECT_EQ(count("problem"), 2);
    memory.runs.run("DROP TRIGGER refuse");
    EXPECT_EQ(look_and_told(), Words{"resolved run_failed"});
}

TEST_F(AlertKeeperTest, DeletedAndDisabledTasksProblemsGoWithoutAWord) {
    for (const char* task_id : {"1", "2"}) run(task_id, Outcome::failed, "why");
    be_due("1", now);
    EXPECT_EQ(look_and_told().size(), 3U);
    store.remove("1");
    set("2", {{"enable", "false"}});
    EXPECT_EQ(look_and_told(), Words());
    EXPECT_EQ(count("problem"), 0);
    set("2", {{"enable", "true"}});
    EXPECT_EQ(look_and_told(), Words{"raised run_failed"});
}

TEST_F(AlertKeeperTest, ShareThatNoTaskHasAnyMoreIsForgotten) {
    tell_room("nas", 0, 100);
    tell_room("of nobody", 0, 100);
    EXPECT_EQ(look_and_told(), Words{"raised share_nearly_full"});
    EXPECT_EQ(count("share_room"), 1);
    for (const char* task_id : {"1", "2"}) set(task_id, {{"serverIP", "other"}});
    EXPECT_EQ(look_and_told(), Words());
    EXPECT_EQ(count("share_room") + count("problem"), 0);
}

TEST_F(AlertKeeperTest, ShareBetweenTheBoundsIsToldOnce) {
    Words all;
    for (const long long free : {49, 51, 49, 59, 49, 60, 59, 51, 50, 49}) {
        tell_room("nas", free, 1000);
        for (const std::string& words : look_and_told()) all.push_back(words);
    }
    EXPECT_EQ(all, (Words{"raised share_nearly_full", "resolved share_nearly_full",
                          "raised share_nearly_full"}));
}

TEST_F(AlertKeeperTest, ProblemKeepsItsBeginningAndTellsItsNewestReason) {
    run("1", Outcome::failed, "the first");
    look();
    now += DAY;
    memory.runs.run("DELETE FROM run");  // as pruning does
    run("1", Outcome::failed, "the second");
    look();
    auto row = memory.runs.prepare("SELECT since, detail FROM problem");
    ASSERT_TRUE(row.step());
    EXPECT_EQ(row.integer(0), 1'000'000);
    EXPECT_EQ(row.text(1), "the second");
    auto alert = memory.runs.prepare("SELECT text FROM alert ORDER BY number DESC LIMIT 1");
    ASSERT_TRUE(alert.step());
    EXPECT_NE(alert.text(0).find("the second"), std::string::npos);
}

TEST_F(AlertKeeperTest, NothingIsWrittenWhenNothingHasChanged) {
    run("1", Outcome::failed, "why");
    tell_room("nas", 0, 100);
    look();
    memory.schedules.limit_waiting(std::chrono::milliseconds(1));
    standalone::Database other(memory_database_path(), standalone::Database::Access::writing);
    const standalone::Transaction writer(other);
    now += DAY - 1;
    look();
    now += 1;
    EXPECT_THROW(look(), standalone::DatabaseError);
}

TEST_F(AlertKeeperTest, OneThatSparesLooksSeesWhatHappensAndWhatTimeBrings) {
    const auto look = [this] { return lasting_look_and_told(); };
    EXPECT_EQ(look(), Words());
    be_due("1", now + 5);
    EXPECT_EQ(look(), Words());
    now += 4;
    EXPECT_EQ(look(), Words());
    ++now;
    EXPECT_EQ(look(), Words{"raised overdue"});
    EXPECT_EQ(look(), Words());
    run("2", Outcome::failed, "why");
    EXPECT_EQ(look(), Words{"raised run_failed"});
    tell_room("nas", 1, 100);
    EXPECT_EQ(look(), Words{"raised share_nearly_full"});
    now += DAY;
    EXPECT_EQ(look(),
              (Words{"reminder overdue", "reminder run_failed", "reminder share_nearly_full"}));
    receivers.push_back({AlertWay::web_hook, ""});
    EXPECT_EQ(look(), Words());
    receivers.clear();
    now += DAY;
    EXPECT_EQ(look(), Words());
    receivers = {{AlertWay::mail, "a@b"}};
    EXPECT_EQ(look(),
              (Words{"reminder overdue", "reminder run_failed", "reminder share_nearly_full"}));
    set("2", {{"enable", "false"}});
    EXPECT_EQ(look(), Words());
    EXPECT_EQ(count("problem"), 2);
}

TEST_F(AlertKeeperTest, NothingIsReadWhileNothingHappens) {
    AlertKeeper keeper(store, memory.schedules, share_of, "rec");
    for (int time = 0; time < 2; ++time) keeper.look(receivers, now + time);
    memory.schedules.run("ALTER TABLE problem RENAME TO hidden_problem");
    keeper.look(receivers, now + DAY);
    receivers.clear();
    EXPECT_THROW(keeper.look(receivers, now + DAY), standalone::DatabaseError);
}

}  // namespace
