// A test alert, sent now, and what comes of it.
#include "services/backup_daemon/tell/alert_trial.h"

#include <poll.h>

#include <algorithm>
#include <ctime>
#include <stdexcept>

#include "services/backup_daemon/tell/alert_attempts.h"
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

}  // namespace

AlertTrial::AlertTrial(const std::string& way, const std::string& recorder) {
    const long long now = std::time(nullptr);
    const AlertMessage message = test_message(recorder, now);
    for (const AlertReceiver& receiver : receivers_of(way)) {
        TestedReceiver& tested =
            receivers_.emplace_back(TestedReceiver{.receiver = receiver, .result = {}});
        auto& process = processes_.emplace_back();
        try {
            process = std::make_unique<SendingProcess>(attempt_of({.number = 0,
                                                                   .receiver = receiver,
                                                                   .made = now,
                                                                   .attempts = 0,
                                                                   .message = message,
                                                                   .last_failure = ""}));
        } catch (const std::exception& error) {
            tested.result = AttemptResult{.arrived = false, .words = error.what()};
        }
    }
}

void AlertTrial::look() {
    for (std::size_t at = 0; at < receivers_.size(); ++at) {
        if (!processes_[at]) continue;
        receivers_[at].result = processes_[at]->result();
        if (receivers_[at].result) processes_[at].reset();
    }
}

void AlertTrial::finish() {
    for (const auto& process : processes_)
        while (process) {
            pollfd answer{.fd = process->descriptor(), .events = POLLIN, .revents = 0};
            poll(&answer, 1, LOOKING);
            look();
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
