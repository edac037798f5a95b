// A test alert, sent now, and what comes of it.
#include "services/backup_daemon/tell/alert_trial.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "services/backup_daemon/tell/alert_settings.h"
#include "services/backup_daemon/tell/alert_text.h"

namespace services {
namespace {

constexpr int LOOKING = 1000;  // milliseconds

std::vector<AlertReceiver> all_receivers() {
    auto receivers = alert_receivers();
    if (receivers.empty())
        throw std::runtime_error(
            "alerts go nowhere: neither alert mail_to nor alert web_hook is set");
    return receivers;
}

/// A way that nobody is told by is tried all the same, for the words that it fails with.
std::vector<AlertReceiver> receivers_by(AlertWay way) {
    auto receivers = alert_receivers();
    std::erase_if(receivers, [way](const auto& receiver) { return receiver.way != way; });
    if (receivers.empty()) receivers.push_back({way, ""});
    return receivers;
}

std::vector<AlertReceiver> receivers_of(const std::string& way) {
    if (way == "mail") return receivers_by(AlertWay::mail);
    if (way == "web_hook") return receivers_by(AlertWay::web_hook);
    if (way != "all") throw std::runtime_error("there is no way \"" + way + '"');
    return all_receivers();
}

AttemptResult failure(const std::string& words) {
    return {.arrived = false, .words = words};
}

}  // namespace

std::vector<WaitingAlert> test_alerts(const std::string& way, const std::string& recorder) {
    const long long now = std::time(nullptr);
    const AlertMessage message = test_message(recorder, now);
    std::vector<WaitingAlert> alerts;
    for (const AlertReceiver& receiver : receivers_of(way))
        alerts.push_back({.number = 0,
                          .receiver = receiver,
                          .made = now,
                          .attempts = 0,
                          .message = message,
                          .last_failure = ""});
    return alerts;
}

AlertTrial::AlertTrial(std::vector<WaitingAlert> alerts, Maker attempt_of,
                       std::chrono::seconds limit)
    : alerts_(std::move(alerts)), attempt_of_(std::move(attempt_of)), limit_(limit) {
    for (const WaitingAlert& alert : alerts_)
        receivers_.push_back({.receiver = alert.receiver, .result = {}});
    look();
}

void AlertTrial::look() {
    std::array<bool, 2> is_busy{};
    for (std::size_t at = 0; at < alerts_.size(); ++at) {
        const auto way = static_cast<std::size_t>(alerts_[at].receiver.way);
        auto& result = receivers_[at].result;
        if (result || is_busy[way]) continue;
        result = go_on(alerts_[at], processes_[way]);
        if (result) processes_[way].reset();
        is_busy[way] = !result;
    }
}

std::optional<AttemptResult> AlertTrial::go_on(const WaitingAlert& alert, Process& process) {
    const bool is_late = std::chrono::steady_clock::now() - begun_ >= limit_;
    const std::string end = " within the test's " + std::to_string(limit_.count()) + " s";
    if (!process) return is_late ? failure("was not tried" + end) : begin(alert, process);
    auto result = process->result();
    if (!result && is_late) result = failure("was not done" + end);
    return result;
}

std::optional<AttemptResult> AlertTrial::begin(const WaitingAlert& alert, Process& process) {
    try {
        process = std::make_unique<SendingProcess>(attempt_of_(alert));
        return {};
    } catch (const std::exception& error) {
        return failure(error.what());
    }
}

void AlertTrial::finish() {
    for (; !is_over(); look()) {
        std::vector<pollfd> answers;
        for (const Process& process : processes_)
            if (process)
                answers.push_back({.fd = process->descriptor(), .events = POLLIN, .revents = 0});
        poll(answers.data(), answers.size(), LOOKING);
    }
}

void AlertTrial::note_in(AlertOutbox& outbox) const {
    for (const TestedReceiver& tested : receivers_)
        if (tested.result && tested.result->arrived) outbox.reached(tested.receiver);
}

bool AlertTrial::is_over() const {
    return std::ranges::all_of(receivers_,
                               [](const auto& receiver) { return receiver.result.has_value(); });
}

}  // namespace services
