// The alerts that have not arrived, as the daemon's database has them.
#include "platform/standalone/store/undelivered_alerts.h"

#include <algorithm>

#include "platform/standalone/store/time_text.h"

namespace standalone {

namespace {

// By then an alert was tried six times.
constexpr long long PATIENCE = 3600;  // seconds

/// Somebody whom alerts do not reach.
struct Silence {
    std::string receiver;
    long long since = 0;
    std::string why;
};

std::string receiver_text(AlertWay way, const std::string& recipient) {
    if (way == AlertWay::web_hook) return "by web hook";
    return recipient.empty() ? "by mail" : "by mail to " + recipient;
}

/// Of a receiver the first one counts.
void add(std::vector<Silence>& silences, Silence silence) {
    const auto known = std::ranges::find(silences, silence.receiver, &Silence::receiver);
    if (known == silences.end())
        silences.push_back(std::move(silence));
    else
        known->since = std::min(known->since, silence.since);
}

}  // namespace

std::vector<UndeliveredAlert> undelivered_alerts(Database& memory) {
    std::vector<UndeliveredAlert> alerts;
    Statement row = memory.prepare(
        "SELECT way, recipient, id, subject, made, attempts, next_attempt, last_failure "
        "FROM alert ORDER BY number");
    while (row.step()) {
        UndeliveredAlert& alert =
            alerts.emplace_back(UndeliveredAlert{.way = static_cast<AlertWay>(row.integer(0)),
                                                 .recipient = row.text(1),
                                                 .id = row.text(2),
                                                 .subject = row.text(3),
                                                 .made = row.integer(4),
                                                 .attempts = row.integer(5),
                                                 .next_attempt = {},
                                                 .last_failure = row.text(7)});
        if (row.integer(6) > 0) alert.next_attempt = row.integer(6);
    }
    return alerts;
}

std::vector<GivenUpReceiver> given_up_receivers(Database& memory) {
    std::vector<GivenUpReceiver> receivers;
    Statement row =
        memory.prepare("SELECT way, recipient, time, why FROM alert_given_up ORDER BY time");
    while (row.step())
        receivers.push_back({.way = static_cast<AlertWay>(row.integer(0)),
                             .recipient = row.text(1),
                             .time = row.integer(2),
                             .why = row.text(3)});
    return receivers;
}

std::string undelivered_text(const std::vector<UndeliveredAlert>& waiting,
                             const std::vector<GivenUpReceiver>& given_up, long long now) {
    std::vector<Silence> silences;
    for (const auto& [way, recipient, time, why] : given_up)
        add(silences, {receiver_text(way, recipient), time, why});
    for (const UndeliveredAlert& alert : waiting)
        if (alert.attempts > 0 && alert.made < now - PATIENCE)
            add(silences,
                {receiver_text(alert.way, alert.recipient), alert.made, alert.last_failure});
    if (silences.empty()) return "";
    const auto& first = *std::ranges::min_element(silences, {}, &Silence::since);
    std::string text = "alerts " + first.receiver + " have not arrived since " +
                       zoned_minute(first.since) + ": " + first.why;
    if (const auto others = silences.size() - 1; others > 0)
        text +=
            "; nor have those for " + std::to_string(others) + (others == 1 ? " other" : " others");
    return text;
}

}  // namespace standalone
