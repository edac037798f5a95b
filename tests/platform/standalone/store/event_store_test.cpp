// The stand-alone event log.
#include "platform/standalone/store/event_store.h"

#include <functional>

#include "platform/recorder_log.h"
#include "platform/standalone/store/schema.h"
#include "platform/utilities.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;
using namespace std::string_literals;

constexpr unsigned RUN_STARTED = 0x23150001;
constexpr unsigned TASK_CREATED = 0x62040001;

class EventStoreTest : public StateTest {
protected:
    Database database_{event_database_path(), Database::Access::writing};
    EventStore events_{database_};
};

TEST_F(EventStoreTest, StoresWhatAUserChanged) {
    const auto before = static_cast<long long>(current_time_stamp());
    ASSERT_EQ(send_surveillance_setting_log_with_username(TASK_CREATED, -1, "10.0.0.7", "admin",
                                                          "Recording Backup", "Näme, \"x\"\n",
                                                          static_cast<char*>(nullptr)),
              0);
    const Event event = events_.newest({}, 10).at(0);
    EXPECT_EQ(event.event_id, TASK_CREATED);
    EXPECT_EQ(event.channel, -1);
    EXPECT_EQ(event.user, "admin");
    EXPECT_EQ(event.ip, "10.0.0.7");
    EXPECT_EQ(event.arguments, (std::vector<std::string>{"Recording Backup", "Näme, \"x\"\n"}));
    EXPECT_GE(event.time_ms, before);
}

TEST_F(EventStoreTest, StoresWhatHappenedInARunAsSystem) {
    ASSERT_EQ(send_surveillance_event_log(RUN_STARTED, -1, "127.0.0.1", "Recording Backup", "a",
                                          "b", static_cast<char*>(nullptr)),
              0);
    const Event event = events_.newest({}, 10).at(0);
    EXPECT_EQ(event.user, "System");
    EXPECT_EQ(event.arguments, (std::vector<std::string>{"Recording Backup", "a", "b"}));
}

TEST_F(EventStoreTest, StoresMissingTextsAsEmptyOnes) {
    ASSERT_EQ(
        send_surveillance_setting_log_with_username(
            TASK_CREATED, -1, nullptr, nullptr, "Recording Backup", static_cast<char*>(nullptr)),
        0);
    EXPECT_EQ(events_.newest({}, 1).at(0).ip, "");
    EXPECT_EQ(events_.newest({}, 1).at(0).user, "");
}

TEST_F(EventStoreTest, TellsAnEventWhoseArgumentsNobodyCanReadWithoutThem) {
    const std::vector<std::string> written = {"a\0b"s, ""};
    for (int event = 0; event < 6; ++event)
        events_.append({0, 5, TASK_CREATED, -1, "u", "i", written});
    database_.run(R"(UPDATE event SET arguments = '[null]' WHERE id = 2;
                     UPDATE event SET arguments = '["a",3]' WHERE id = 3;
                     UPDATE event SET arguments = '{}' WHERE id = 4;
                     UPDATE event SET arguments = '' WHERE id = 5;
                     UPDATE event SET arguments = '["a"' WHERE id = 6)");
    for (const Event& event : events_.newest({}, 6)) {
        EXPECT_EQ(event.user, "u");
        EXPECT_EQ(event.arguments, event.id == 1 ? written : std::vector<std::string>())
            << event.id;
    }
}

TEST_F(EventStoreTest, GivesTheNewestFirstAndOnlyTheSubTypesAskedFor) {
    for (const unsigned event_id : {RUN_STARTED, TASK_CREATED, 0x23170001U, 0x11110001U})
        events_.append({0, 5, event_id, -1, "u", "i", {}});
    EXPECT_EQ(events_.newest({}, 2).at(0).event_id, 0x11110001U);
    EXPECT_EQ(events_.newest({}, 2).size(), 2U);
    const auto backup = events_.newest({8981, 8983, 25092}, 100);
    ASSERT_EQ(backup.size(), 3U);
    EXPECT_EQ(backup.at(0).event_id, 0x23170001U);
    EXPECT_EQ(backup.at(2).event_id, RUN_STARTED);
    EXPECT_EQ(events_.count({8981}), 1);
    EXPECT_EQ(events_.count({}), 4);
    EXPECT_TRUE(events_.newest({}, 0).empty());
}

TEST_F(EventStoreTest, GivesTheNewestOfAllSubTypesTogetherEachOnce) {
    for (int round = 0; round < 4; ++round)
        for (const unsigned event_id : {RUN_STARTED, TASK_CREATED})
            events_.append({0, 5, event_id, -1, "u", "i", {std::to_string(round)}});
    const auto newest = events_.newest({25092, 8981, 25092, 1}, 3);
    ASSERT_EQ(newest.size(), 3U);
    EXPECT_EQ(newest[0].event_id, TASK_CREATED);
    EXPECT_EQ(newest[1].event_id, RUN_STARTED);
    EXPECT_EQ(newest[2].event_id, TASK_CREATED);
    EXPECT_EQ(newest[2].arguments, std::vector<std::string>{"2"});
    EXPECT_EQ(events_.count({25092, 8981, 25092, 1}), 8);
    EXPECT_TRUE(events_.newest({25092, 8981}, -1).empty());
}

/// Events of run identifiers about tasks, by which they are alike.
class LimitedEvents : public EventStoreTest {
protected:
    bool append(long long time, const std::string& task, unsigned event_id = RUN_STARTED,
                std::size_t arguments = 2) {
        return events_.append_within_limit(
            {{0, time, event_id, -1, "u", "i", {"app", task, std::to_string(time)}},
             EventLimit{2, arguments}});
    }
};

TEST_F(LimitedEvents, AreAlikeByIdentifierAndFirstArguments) {
    EXPECT_TRUE(append(1000, "a"));
    EXPECT_TRUE(append(1000, "a\"b"));
    EXPECT_TRUE(append(1001, "a"));
    EXPECT_FALSE(append(1002, "a"));
    for (const char* other : {"", "A", "a ", "a\",\"1", "%", "é"}) EXPECT_TRUE(append(1002, other));
    EXPECT_TRUE(append(1002, "a", TASK_CREATED));
    EXPECT_EQ(events_.count({}), 10);
}

TEST_F(LimitedEvents, AreAlikeByIdentifierAloneWhereArgumentsDoNotCount) {
    EXPECT_TRUE(append(1000, "a", RUN_STARTED, 0));
    EXPECT_TRUE(append(1000, "b", RUN_STARTED, 0));
    EXPECT_FALSE(append(1000, "c", RUN_STARTED, 0));
    EXPECT_TRUE(append(1000, "c", TASK_CREATED, 0));
}

TEST_F(LimitedEvents, CountForTheMinuteThatEndsWithTheNewOne) {
    EXPECT_TRUE(append(1000, "a"));
    EXPECT_TRUE(append(2000, "a"));
    EXPECT_FALSE(append(60'999, "a"));
    EXPECT_TRUE(append(61'000, "a"));
    EXPECT_FALSE(append(61'001, "a"));
}

TEST_F(LimitedEvents, OfAFutureThatAClockHasLeftDoNotCount) {
    EXPECT_TRUE(append(9'000'000, "a"));
    EXPECT_TRUE(append(9'000'000, "a"));
    EXPECT_TRUE(append(1000, "a"));
}

TEST_F(EventStoreTest, HoldsAnEventThatDiffersInNothingButItsNumber) {
    const Event stored{0, 5, RUN_STARTED, 3, "u", "i", {"a", "b\0c"s}};
    events_.append(stored);
    EXPECT_TRUE(events_.holds(stored));
    for (const auto& change : std::vector<std::function<void(Event&)>>{
             [](Event& event) { ++event.time_ms; }, [](Event& event) { ++event.event_id; },
             [](Event& event) { event.channel = -1; }, [](Event& event) { event.user = "U"; },
             [](Event& event) { event.ip = ""; }, [](Event& event) { event.arguments.pop_back(); },
             [](Event& event) { event.arguments.back() = "b"; }}) {
        Event other = stored;
        change(other);
        EXPECT_FALSE(events_.holds(other));
    }
}

TEST_F(EventStoreTest, RemovesOnlyOlderEventsTheOldestFirst) {
    for (const long long time : {30, 10, 20, 40})
        events_.append({0, time, RUN_STARTED, -1, "u", "i", {}});
    events_.append({0, 15, TASK_CREATED, -1, "u", "i", {}});
    EXPECT_EQ(events_.remove_older(10, 100), 0);
    EXPECT_EQ(events_.remove_older(30, 2), 2);
    EXPECT_EQ(events_.count({25092}), 0);
    EXPECT_EQ(events_.remove_older(30, 2), 1);
    EXPECT_EQ(events_.remove_older(30, 2), 0);
    const auto left = events_.newest({}, 10);
    ASSERT_EQ(left.size(), 2U);
    EXPECT_EQ(left[0].time_ms, 40);
    EXPECT_EQ(left[1].time_ms, 30);
    EXPECT_EQ(events_.count({}), 2);
}

TEST_F(EventStoreTest, CountsOfTheOtherSubTypesStayWhenEventsAreRemoved) {
    for (const long long time : {1, 2, 3}) {
        events_.append({0, time, RUN_STARTED, -1, "u", "i", {}});
        events_.append({0, time, TASK_CREATED, -1, "u", "i", {}});
    }
    EXPECT_EQ(events_.remove_older(2, 1), 1);
    EXPECT_EQ(events_.count({8981}) + events_.count({25092}), 5);
    EXPECT_EQ(events_.remove_older(3, 10), 3);
    EXPECT_EQ(events_.count({8981}), 1);
    EXPECT_EQ(events_.count({25092}), 1);
    EXPECT_EQ(events_.count({8983}), 0);
    EXPECT_EQ(events_.remove_older(9, 0), 0);
}

TEST_F(EventStoreTest, IdentifiersOfRemovedEventsAreNotGivenAgain) {
    events_.append({0, 1, RUN_STARTED, -1, "u", "i", {}});
    events_.remove_older(2, 10);
    events_.append({0, 3, RUN_STARTED, -1, "u", "i", {}});
    EXPECT_EQ(events_.newest({}, 1).at(0).id, 2);
}

TEST_F(EventStoreTest, EventsOfTheFirstSchemaAreCountedWhenItIsBroughtUpToDate) {
    const std::string path = state_.folder() + "/old.db";
    migrate(path, event_migrations().first(1));
    {
        Database old(path, Database::Access::writing);
        for (const unsigned event_id : {RUN_STARTED, RUN_STARTED, TASK_CREATED})
            EventStore(old).append({0, 5, event_id, -1, "u", "i", {}});
    }
    migrate(path, event_migrations());
    Database current(path, Database::Access::writing);
    EventStore store(current);
    EXPECT_EQ(store.count({8981}), 2);
    EXPECT_EQ(store.count({}), 3);
    store.append({0, 5, RUN_STARTED, -1, "u", "i", {}});
    EXPECT_EQ(store.count({8981}), 3);
}

TEST_F(EventStoreTest, QueryForOneSubTypeFollowsTheIndexAndSortsNothing) {
    Statement plan = database_.prepare(
        "EXPLAIN QUERY PLAN SELECT id FROM event WHERE sub_type = 1 ORDER BY id DESC LIMIT 9");
    ASSERT_TRUE(plan.step());
    EXPECT_EQ(plan.text(3), "SEARCH event USING INDEX event_by_sub_type (sub_type=?)");
    EXPECT_FALSE(plan.step());
}

TEST_F(EventStoreTest, ReportsAnEventThatCannotBeStored) {
    setenv("RECORDER_STATE", "/nonexistent", 1);
    EXPECT_NE(send_surveillance_event_log(RUN_STARTED, -1, "127.0.0.1", "Recording Backup",
                                          static_cast<char*>(nullptr)),
              0);
}

}  // namespace
