// What the sender does with alerts whose attempts are played here, in real processes.
#include "services/backup_daemon/tell/alert_sender.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "tests/services/backup_daemon/memory/memory_test.h"
#include "tests/support/patience.h"

namespace {

using namespace services;

constexpr long long NOW = 1'700'000'000;
constexpr long long DAY = 86400;
const AlertReceiver MAIL{AlertWay::mail, "a@b"};
const AlertReceiver WEB_HOOK{AlertWay::web_hook, ""};

const Attempt ARRIVES = [](const AttemptReport& report) { report({true, ""}); };
const Attempt HANGS = [](const AttemptReport&) { pause(); };

class AlertSenderTest : public MemoryTest {
protected:
    void put(const std::string& id, const std::vector<AlertReceiver>& receivers) {
        outbox_.put({.id = id, .subject = "S", .text = "T\n", .object = "{}"}, receivers, NOW);
    }

    /// Looks until so many wait, and gives what was said meanwhile.
    std::string look_until_waiting(long long number, long long now = NOW) {
        testing::internal::CaptureStderr();
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (outbox_.waiting() != number && std::chrono::steady_clock::now() < deadline)
            look(now);
        EXPECT_EQ(outbox_.waiting(), number);
        return testing::internal::GetCapturedStderr();
    }

    /// Looks until the alert on that way has been tried, and gives why it has not arrived.
    std::string look_until_failed(AlertWay way, long long now = NOW) {
        testing::internal::CaptureStderr();
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        while (outbox_.due(way, now) && std::chrono::steady_clock::now() < deadline) look(now);
        testing::internal::GetCapturedStderr();
        const auto alert = outbox_.due(way, now + DAY);
        return alert ? alert->last_failure : "gone";
    }

    void look(long long now) {
        sender_.look(now);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

    AlertOutbox outbox_{memory_.schedules};
    std::vector<std::string> begun_;
    std::function<Attempt(const WaitingAlert&)> play_ = [](const WaitingAlert&) { return ARRIVES; };
    AlertSender sender_{memory_.schedules, [this](const WaitingAlert& alert) {
                            begun_.push_back(alert.message.id);
                            return play_(alert);
                        }};
};

TEST_F(AlertSenderTest, EachAlertIsSentOnceOnEachOfItsWays) {
    put("a1", {MAIL, WEB_HOOK});
    put("a2", {MAIL});
    EXPECT_EQ(look_until_waiting(0), "");
    EXPECT_EQ(begun_, (std::vector<std::string>{"a1", "a1", "a2"}));
}

TEST_F(AlertSenderTest, WhatDoesNotArriveIsToldAndTriedAgainLater) {
    play_ = [](const WaitingAlert&) {
        return [](const AttemptReport& report) { report({false, "no such user"}); };
    };
    put("a1", {MAIL});
    EXPECT_EQ(look_until_failed(AlertWay::mail), "no such user");
    for (int count = 0; count < 20; ++count) look(NOW + 59);
    EXPECT_EQ(begun_.size(), 1U);
    play_ = [](const WaitingAlert&) { return ARRIVES; };
    look_until_waiting(0, NOW + 60);
    EXPECT_EQ(begun_.size(), 2U);
}

TEST_F(AlertSenderTest, OneTroubleOfManyAlertsIsOneLine) {
    play_ = [](const WaitingAlert& alert) -> Attempt {
        throw std::runtime_error("no answer after " + std::to_string(alert.number) + " ms");
    };
    for (int count = 0; count < 40; ++count) put("a" + std::to_string(count), {MAIL});
    testing::internal::CaptureStderr();
    while (outbox_.due(AlertWay::mail, NOW)) sender_.look(NOW);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "alerts by mail to a@b do not arrive: no answer after 1 ms\n");
    EXPECT_EQ(begun_.size(), 40U);
}

TEST_F(AlertSenderTest, OneWayThatHangsKeepsTheOtherFromNothing) {
    play_ = [](const WaitingAlert& alert) {
        return alert.receiver.way == AlertWay::mail ? HANGS : ARRIVES;
    };
    put("a1", {MAIL, WEB_HOOK});
    put("a2", {MAIL, WEB_HOOK});
    look_until_waiting(2);
    EXPECT_EQ(begun_, (std::vector<std::string>{"a1", "a1", "a2"}));
}

TEST_F(AlertSenderTest, AnAttemptThatThrowsOrEndsHasFailed) {
    play_ = [](const WaitingAlert&) -> Attempt { throw std::runtime_error("not set"); };
    put("a1", {MAIL});
    EXPECT_EQ(look_until_failed(AlertWay::mail), "not set");
    play_ = [](const WaitingAlert&) {
        return [](const AttemptReport&) { throw std::runtime_error("in\nthe process"); };
    };
    EXPECT_EQ(look_until_failed(AlertWay::mail, NOW + DAY), "in\\nthe process");
    play_ = [](const WaitingAlert&) { return [](const AttemptReport&) { raise(SIGKILL); }; };
    EXPECT_EQ(look_until_failed(AlertWay::mail, NOW + 2 * DAY), "the sending process ended");
}

TEST_F(AlertSenderTest, WhatArrivedIsNotSentAgainWhileTheDatabaseCannotBeWritten) {
    put("a1", {MAIL});
    look(NOW);
    memory_.schedules.limit_waiting(std::chrono::milliseconds(1));
    {
        const standalone::Transaction others(memory_.runs);
        const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
        bool has_failed = false;
        while (!has_failed && std::chrono::steady_clock::now() < deadline) {
            try {
                look(NOW);
            } catch (const standalone::DatabaseError&) {
                has_failed = true;
            }
        }
        ASSERT_TRUE(has_failed);
        EXPECT_THROW(look(NOW), standalone::DatabaseError);
    }
    look_until_waiting(0);
    EXPECT_EQ(begun_.size(), 1U);
}

TEST_F(AlertSenderTest, ARecipientWhoIsRefusedForGoodIsGivenUpAtOnceAndToldAndCounted) {
    play_ = [](const WaitingAlert& alert) -> Attempt {
        if (alert.receiver.recipient == "a@b") return ARRIVES;
        return [](const AttemptReport& report) { report({false, "550 no such user", true}); };
    };
    put("a1", {{AlertWay::mail, "gone@b"}, MAIL});
    EXPECT_EQ(look_until_waiting(0),
              "alert \"S\" (a1) by mail to gone@b is given up at once: 550 no such user\n");
    EXPECT_EQ(begun_.size(), 2U);
    EXPECT_EQ(sender_.given_up(), 1);
}

TEST_F(AlertSenderTest, ARecipientWhoIsRefusedForNowWaitsAndNobodyElse) {
    play_ = [](const WaitingAlert& alert) -> Attempt {
        if (alert.receiver.recipient == "a@b") return ARRIVES;
        return [](const AttemptReport& report) { report({false, "450 later"}); };
    };
    put("a1", {{AlertWay::mail, "later@b"}, MAIL, {AlertWay::mail, "late@b"}});
    look_until_waiting(2);
    EXPECT_EQ(outbox_.due(AlertWay::mail, NOW + 60)->receiver.recipient, "later@b");
    EXPECT_EQ(sender_.given_up(), 0);
}

TEST_F(AlertSenderTest, WhatIsGivenUpIsToldWithItsLastFailure) {
    play_ = [](const WaitingAlert&) -> Attempt { throw std::runtime_error("is down"); };
    put("a1", {WEB_HOOK});
    memory_.runs.run("UPDATE alert SET attempts = 77");
    EXPECT_EQ(look_until_waiting(0),
              "alert \"S\" (a1) by web_hook is given up after 78 attempts: is down\n");
    EXPECT_EQ(sender_.given_up(), 1);
}

TEST_F(AlertSenderTest, ASenderThatGoesTakesItsProcessesAlong) {
    {
        AlertSender other(memory_.schedules, [](const WaitingAlert&) { return HANGS; });
        put("a1", {MAIL});
        other.look(NOW);
    }
    // Waits for ever for one that goes on.
    while (waitpid(-1, nullptr, 0) > 0) continue;
    EXPECT_EQ(errno, ECHILD);
}

}  // namespace
