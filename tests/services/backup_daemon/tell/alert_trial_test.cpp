// How a test alert goes to its receivers, by attempts that are played here, in real processes.
#include "services/backup_daemon/tell/alert_trial.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "tests/support/patience.h"

namespace {

using namespace services;

std::vector<WaitingAlert> alerts_for(const std::vector<AlertReceiver>& receivers) {
    std::vector<WaitingAlert> alerts;
    for (const AlertReceiver& receiver : receivers) alerts.emplace_back().receiver = receiver;
    return alerts;
}

std::vector<AlertReceiver> mails(int count) {
    std::vector<AlertReceiver> receivers;
    for (int number = 0; number < count; ++number)
        receivers.push_back({AlertWay::mail, std::to_string(number) + "@b"});
    return receivers;
}

std::vector<std::string> words_of(const AlertTrial& trial) {
    std::vector<std::string> words;
    for (const auto& [receiver, result] : trial.receivers())
        words.push_back(!result ? "trying" : result->arrived ? "arrived" : result->words);
    return words;
}

const AlertTrial::Maker ARRIVES = [](const WaitingAlert&) {
    return [](const AttemptReport& report) { report({true, ""}); };
};
const Attempt HANGS = [](const AttemptReport&) { pause(); };

/// Holds a file of its own while it is tried, and fails where somebody else holds it.
Attempt alone_with(const std::string& file) {
    return [file](const AttemptReport& report) {
        const int held = open(file.c_str(), O_CREAT | O_EXCL, 0600);
        if (held < 0) return report({false, "two at once"});
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        unlink(file.c_str());
        report({true, ""});
    };
}

TEST(AlertTrialTest, MailsGoOneAtATime) {
    std::string folder = std::filesystem::temp_directory_path() / "trial-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    AlertTrial trial(alerts_for(mails(20)),
                     [&](const WaitingAlert&) { return alone_with(folder + "/held"); });
    trial.finish();
    EXPECT_EQ(words_of(trial), std::vector<std::string>(20, "arrived"));
    std::filesystem::remove_all(folder);
}

TEST(AlertTrialTest, AMailThatHangsKeepsTheWebHookFromNothing) {
    auto receivers = mails(2);
    receivers.push_back({AlertWay::web_hook, ""});
    AlertTrial trial(alerts_for(receivers), [](const WaitingAlert& alert) {
        return alert.receiver.way == AlertWay::mail ? HANGS : ARRIVES(alert);
    });
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (!trial.receivers()[2].result && std::chrono::steady_clock::now() < deadline) {
        trial.look();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_EQ(words_of(trial), (std::vector<std::string>{"trying", "trying", "arrived"}));
}

TEST(AlertTrialTest, MailsThatHangEndWithTheWholeTest) {
    AlertTrial trial(
        alerts_for(mails(3)), [](const WaitingAlert&) { return HANGS; }, std::chrono::seconds(1));
    trial.finish();
    EXPECT_EQ(words_of(trial), (std::vector<std::string>{"was not done within the test's 1 s",
                                                         "was not tried within the test's 1 s",
                                                         "was not tried within the test's 1 s"}));
}

TEST(AlertTrialTest, WhatCannotBeTriedFailsAndTheNextIsTried) {
    AlertTrial trial(alerts_for(mails(3)), [](const WaitingAlert& alert) -> Attempt {
        if (alert.receiver.recipient == "1@b") throw std::runtime_error("not set");
        return ARRIVES(alert);
    });
    trial.finish();
    EXPECT_EQ(words_of(trial), (std::vector<std::string>{"arrived", "not set", "arrived"}));
}

}  // namespace
