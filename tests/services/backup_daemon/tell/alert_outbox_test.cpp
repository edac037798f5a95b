// When an alert that waits is tried, and when it goes.
#include "services/backup_daemon/tell/alert_outbox.h"

#include "platform/standalone/store/undelivered_alerts.h"
#include "tests/services/backup_daemon/memory/memory_test.h"

namespace {

using namespace services;

constexpr long long NOW = 1'700'000'000;
constexpr long long MINUTE = 60;
constexpr long long HOUR = 3600;
constexpr long long DAY = 24 * HOUR;
const AlertReceiver MAIL{AlertWay::mail, "a@b"};
const AlertReceiver WEB_HOOK{AlertWay::web_hook, ""};

class AlertOutboxTest : public MemoryTest {
protected:
    void put(const std::string& id, const std::vector<AlertReceiver>& receivers,
             long long now = NOW) {
        outbox_.put({.id = id, .subject = "S " + id, .text = "T\n", .object = "{}"}, receivers,
                    now);
    }

    void put_about(const std::string& problem, const std::string& id,
                   const std::vector<AlertReceiver>& receivers) {
        outbox_.put({.id = id, .subject = "S", .text = "T\n", .object = "{}", .about = problem},
                    receivers, NOW);
    }

    std::string due(AlertWay way, long long now) {
        const auto alert = outbox_.due(way, now);
        return alert ? alert->message.id : "none";
    }

    void fail(AlertWay way, long long now) { outbox_.failed(*outbox_.due(way, now), "no", now); }

    /// Has all attempts of the next alert fail.
    void use_up(AlertWay way) {
        long long now = NOW;
        for (; outbox_.failed(*outbox_.due(way, now), "no", now); now += HOUR) continue;
    }

    std::size_t given_up() { return standalone::given_up_receivers(memory_.runs).size(); }

    AlertOutbox outbox_{memory_.runs};
};

TEST_F(AlertOutboxTest, AnAlertIsDueAtOnceOnEachOfItsWaysAsItWasPut) {
    const AlertMessage put{.id = "a1", .subject = "Über", .text = "1\n2\n", .object = "{\"a\":1}"};
    outbox_.put(put, {MAIL, WEB_HOOK}, NOW);
    EXPECT_EQ(outbox_.waiting(), 2);
    for (const AlertReceiver& receiver : {MAIL, WEB_HOOK}) {
        const auto alert = outbox_.due(receiver.way, NOW);
        ASSERT_TRUE(alert);
        EXPECT_EQ(alert->receiver, receiver);
        EXPECT_EQ(alert->made, NOW);
        EXPECT_EQ(alert->attempts, 0);
        EXPECT_EQ(alert->message.id, put.id);
        EXPECT_EQ(alert->message.subject, put.subject);
        EXPECT_EQ(alert->message.text, put.text);
        EXPECT_EQ(alert->message.object, put.object);
    }
}

TEST_F(AlertOutboxTest, AnAlertWithoutAWayDoesNotWait) {
    put("a1", {});
    EXPECT_EQ(outbox_.waiting(), 0);
}

TEST_F(AlertOutboxTest, OldestComesFirstAndOneThatArrivedNeverAgain) {
    put("a1", {MAIL});
    put("a2", {MAIL});
    EXPECT_EQ(due(AlertWay::mail, NOW), "a1");
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));
    EXPECT_EQ(due(AlertWay::mail, NOW), "a2");
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));
    EXPECT_EQ(due(AlertWay::mail, NOW + DAY), "none");
    EXPECT_EQ(outbox_.waiting(), 0);
}

TEST_F(AlertOutboxTest, WaysAreApart) {
    put("a1", {MAIL, WEB_HOOK});
    fail(AlertWay::mail, NOW);
    EXPECT_EQ(due(AlertWay::mail, NOW), "none");
    EXPECT_EQ(due(AlertWay::web_hook, NOW), "a1");
    outbox_.arrived(*outbox_.due(AlertWay::web_hook, NOW));
    EXPECT_EQ(due(AlertWay::mail, NOW + MINUTE), "a1");
}

TEST_F(AlertOutboxTest, PausesGrowFromAMinuteToAnHour) {
    put("a1", {MAIL});
    long long now = NOW;
    for (const long long pause : {1, 2, 4, 8, 16, 32, 60, 60}) {
        fail(AlertWay::mail, now);
        EXPECT_EQ(due(AlertWay::mail, now + pause * MINUTE - 1), "none") << pause;
        now += pause * MINUTE;
        ASSERT_EQ(due(AlertWay::mail, now), "a1") << pause;
    }
    EXPECT_EQ(outbox_.due(AlertWay::mail, now)->attempts, 8);
    EXPECT_EQ(outbox_.due(AlertWay::mail, now)->last_failure, "no");
}

TEST_F(AlertOutboxTest, OneThatFailsKeepsNoOtherFromItsAttempt) {
    put("a1", {MAIL});
    put("a2", {MAIL});
    fail(AlertWay::mail, NOW);
    EXPECT_EQ(due(AlertWay::mail, NOW), "a2");
}

TEST_F(AlertOutboxTest, NobodyHearsThatAProblemIsOverBeforeTheyHearOfIt) {
    const AlertReceiver other{AlertWay::mail, "c@d"};
    put_about("overdue 1", "raised", {MAIL, other});
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));  // a@b is the first
    fail(AlertWay::mail, NOW);
    put_about("overdue 1", "over", {MAIL, other});
    EXPECT_EQ(outbox_.due(AlertWay::mail, NOW)->receiver, MAIL);
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));
    EXPECT_EQ(due(AlertWay::mail, NOW), "none");
    EXPECT_EQ(due(AlertWay::mail, NOW + MINUTE), "raised");
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW + MINUTE));
    EXPECT_EQ(due(AlertWay::mail, NOW + MINUTE), "over");
}

TEST_F(AlertOutboxTest, AProblemWaitsForNoOtherOne) {
    put_about("overdue 1", "a1", {MAIL});
    fail(AlertWay::mail, NOW);
    put_about("overdue 2", "a2", {MAIL});
    EXPECT_EQ(due(AlertWay::mail, NOW), "a2");
}

TEST_F(AlertOutboxTest, WhatIsOlderIsDueAgainWhenSomethingHasArrivedAtItsReceiver) {
    put("a1", {{AlertWay::mail, "c@d"}, MAIL, WEB_HOOK});
    for (int count = 0; count < 2; ++count) fail(AlertWay::mail, NOW);
    fail(AlertWay::web_hook, NOW);
    put("a2", {MAIL});
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));
    ASSERT_EQ(due(AlertWay::mail, NOW), "a1");
    EXPECT_EQ(outbox_.due(AlertWay::mail, NOW)->receiver, MAIL);
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));
    EXPECT_EQ(due(AlertWay::mail, NOW), "none") << "other recipients go by their own attempts";
    EXPECT_EQ(due(AlertWay::web_hook, NOW), "none");
}

TEST_F(AlertOutboxTest, IsGivenUpAfterThreeDaysOfAttempts) {
    put("a1", {MAIL, WEB_HOOK});
    const auto at_web_hook = outbox_.due(AlertWay::web_hook, NOW);
    long long now = NOW;
    while (outbox_.waiting() == 2) {
        if (due(AlertWay::mail, now) == "a1") fail(AlertWay::mail, now);
        now += MINUTE;
    }
    EXPECT_GE(now, NOW + 3 * DAY);
    EXPECT_LT(now, NOW + 3 * DAY + HOUR);
    EXPECT_EQ(due(AlertWay::mail, now + DAY), "none");
    EXPECT_EQ(due(AlertWay::web_hook, now), "a1");
    EXPECT_TRUE(outbox_.failed(*at_web_hook, "no", now));
}

TEST_F(AlertOutboxTest, HoweverLongTheRecorderWasOffOrItsClockJumpedAllAttemptsAreMade) {
    put("a1", {MAIL});
    for (int count = 1; count < AlertOutbox::MOST_ATTEMPTS; ++count)
        fail(AlertWay::mail, NOW + count * 30 * DAY);
    const long long last = NOW + 5000 * DAY;
    EXPECT_EQ(outbox_.due(AlertWay::mail, last)->last_failure, "no");
    EXPECT_FALSE(outbox_.failed(*outbox_.due(AlertWay::mail, last), "no", last));
    EXPECT_EQ(outbox_.waiting(), 0);
}

TEST_F(AlertOutboxTest, AnAttemptThatAWrongClockPlannedIsNotWaitedFor) {
    put("a1", {MAIL}, NOW + 400 * DAY);
    fail(AlertWay::mail, NOW + 400 * DAY);
    EXPECT_EQ(due(AlertWay::mail, NOW), "a1");
}

TEST_F(AlertOutboxTest, AlertsOutliveTheDaemon) {
    put("a1", {MAIL});
    fail(AlertWay::mail, NOW);
    Memory next = open_memory();
    AlertOutbox outbox(next.runs);
    EXPECT_FALSE(outbox.due(AlertWay::mail, NOW));
    EXPECT_EQ(outbox.due(AlertWay::mail, NOW + MINUTE)->attempts, 1);
}

TEST_F(AlertOutboxTest, WhoWasGivenUpIsRememberedUntilAnAlertArrivesThere) {
    put("a1", {MAIL, WEB_HOOK});
    use_up(AlertWay::mail);
    const auto receivers = standalone::given_up_receivers(memory_.runs);
    ASSERT_EQ(receivers.size(), 1U);
    EXPECT_EQ(receivers[0].recipient, MAIL.recipient);
    EXPECT_EQ(receivers[0].why, "no");
    EXPECT_GT(receivers[0].time, NOW + 2 * DAY);
    put("a2", {MAIL});
    outbox_.give_up(*outbox_.due(AlertWay::mail, NOW), "550", NOW);
    EXPECT_EQ(standalone::given_up_receivers(memory_.runs)[0].why, "550");
    outbox_.arrived(*outbox_.due(AlertWay::web_hook, NOW));
    EXPECT_EQ(given_up(), 1U) << "another receiver's";
    put("a3", {MAIL});
    outbox_.arrived(*outbox_.due(AlertWay::mail, NOW));
    EXPECT_EQ(given_up(), 0U);
}

TEST_F(AlertOutboxTest, WhatWaitsForWhoIsReachedOtherwiseIsDue) {
    put("a1", {MAIL, WEB_HOOK});
    use_up(AlertWay::mail);
    put("a2", {MAIL, WEB_HOOK});
    fail(AlertWay::mail, NOW);
    fail(AlertWay::web_hook, NOW);
    outbox_.reached(MAIL);
    EXPECT_EQ(given_up(), 0U);
    EXPECT_EQ(due(AlertWay::mail, NOW), "a2");
    EXPECT_EQ(due(AlertWay::web_hook, NOW + MINUTE - 1), "a2") << "a1 has failed, a2 has not";
}

TEST_F(AlertOutboxTest, WhoIsNoReceiverAnyMoreNeedNotBeReached) {
    put("a1", {MAIL, WEB_HOOK});
    outbox_.give_up(*outbox_.due(AlertWay::mail, NOW), "no", NOW);
    outbox_.give_up(*outbox_.due(AlertWay::web_hook, NOW), "no", NOW);
    outbox_.forget_others({MAIL, {AlertWay::mail, "c@d"}});
    const auto receivers = standalone::given_up_receivers(memory_.runs);
    ASSERT_EQ(receivers.size(), 1U);
    EXPECT_EQ(receivers[0].way, AlertWay::mail);
}

}  // namespace
