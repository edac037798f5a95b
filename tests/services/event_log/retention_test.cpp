// How long events are kept, and that old ones go in small transactions.
#include "services/event_log/retention.h"

#include "platform/known_settings.h"
#include "platform/standalone/store/key_value_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;
using standalone::Database;

constexpr long long OLDEST_KEPT_MS = 1'000'000;

class RetentionTest : public StateTest {
protected:
    /// The first `old` of the events are from before the time.
    void fill(int old, int kept) {
        standalone::Statement insert = events_.prepare(
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?2) "
            "INSERT INTO event (time_ms, event_id, channel, user, ip, arguments) "
            "SELECT ?1 + i, 0x23150001, -1, 'System', '', '[]' FROM n");
        insert.bind(1, OLDEST_KEPT_MS - 1 - old).bind(2, old + kept).step();
    }

    Database events_{standalone::event_database_path(), Database::Access::writing};
    standalone::EventStore store_{events_};
};

TEST_F(RetentionTest, KeepsAYearUnlessConfiguredOtherwise) {
    EXPECT_EQ(keep_days(), 365);
    EXPECT_EQ(keep_days(), find_setting("log", "keep_days")->otherwise);
    Database registry(standalone::registry_database_path(), Database::Access::writing);
    standalone::KeyValueStore(registry).set("log", "keep_days", "30");
    EXPECT_EQ(keep_days(), 30);
    standalone::KeyValueStore(registry).set("log", "keep_days", "0");
    EXPECT_EQ(keep_days(), 365);
}

TEST_F(RetentionTest, RemovesEverythingOlderAndNothingElse) {
    fill(3, 2);
    remove_older_events(store_, OLDEST_KEPT_MS, [] { return true; });
    const auto left = store_.newest({}, 10);
    ASSERT_EQ(left.size(), 2U);
    EXPECT_EQ(left.back().time_ms, OLDEST_KEPT_MS);
}

TEST_F(RetentionTest, GoesOnInTransactionsOfFiveHundredUntilNothingIsLeft) {
    fill(1100, 1);
    std::vector<long long> left;
    remove_older_events(store_, OLDEST_KEPT_MS, [&] {
        left.push_back(store_.count({}));
        return true;
    });
    EXPECT_EQ(left, (std::vector<long long>{601, 101}));
    EXPECT_EQ(store_.count({}), 1);
}

TEST_F(RetentionTest, StopsBetweenTwoTransactionsWhenToldSo) {
    fill(1100, 0);
    remove_older_events(store_, OLDEST_KEPT_MS, [] { return false; });
    EXPECT_EQ(store_.count({}), 600);
}

}  // namespace
