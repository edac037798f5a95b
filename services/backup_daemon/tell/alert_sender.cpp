// Sends the alerts that wait: one at a time on each way, each in a process of its own.
#include "services/backup_daemon/tell/alert_sender.h"

#include <cstdio>

#include "platform/standalone/store/one_line.h"

namespace services {
namespace {

constexpr std::array WAYS = {AlertWay::mail, AlertWay::web_hook};

std::string receiver_text(const AlertReceiver& receiver) {
    const std::string way(way_text(receiver.way));
    return receiver.recipient.empty() ? way : way + " to " + receiver.recipient;
}

std::string without_digits(std::string text) {
    std::erase_if(text, [](char byte) { return byte >= '0' && byte <= '9'; });
    return text;
}

std::string named(const WaitingAlert& alert) {
    return "alert \"" + alert.message.subject + "\" (" + alert.message.id + ") by " +
           receiver_text(alert.receiver);
}

}  // namespace

void AlertSender::look(long long now) {
    SendingProcess::reap();
    for (std::size_t at = 0; at < WAYS.size(); ++at) {
        finish(places_[at], now);
        if (!places_[at]) begin(WAYS[at], places_[at], now);
    }
}

void AlertSender::tell_given_up(const WaitingAlert& alert, const std::string& why) {
    ++given_up_;
    const std::string text = named(alert) + " is given up " + why;
    std::fprintf(stderr, "%s\n", standalone::one_line(text).c_str());
}

void AlertSender::begin(AlertWay way, Place& place, long long now) {
    const auto alert = outbox_.due(way, now);
    if (!alert) return;
    place.emplace(Journey{.alert = *alert, .process = nullptr, .result = {}});
    try {
        place->process = std::make_unique<SendingProcess>(attempt_of_(*alert));
    } catch (const std::exception& error) {
        place->result = AttemptResult{.arrived = false, .words = error.what()};
        finish(place, now);
    }
}

void AlertSender::finish(Place& place, long long now) {
    if (place && !place->result) place->result = place->process->result();
    if (!place || !place->result) return;
    note(place->alert, *place->result, now);
    place.reset();
}

void AlertSender::note(const WaitingAlert& alert, const AttemptResult& result, long long now) {
    if (result.arrived) return outbox_.arrived(alert);
    if (result.refused_for_good) {
        outbox_.give_up(alert, result.words, now);
        return tell_given_up(alert, "at once: " + result.words);
    }
    if (!outbox_.failed(alert, result.words, now))
        return tell_given_up(
            alert, "after " + std::to_string(alert.attempts + 1) + " attempts: " + result.words);
    // What differs between attempts of one trouble, as times do, would make it a new one each time.
    const std::string text =
        "alerts by " + receiver_text(alert.receiver) + " do not arrive: " + result.words;
    complaints_.print_as(without_digits(text), text);
}

}  // namespace services
