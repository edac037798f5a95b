// Alerts on their way: what is put here is tried until it arrives, or for three days.
#include "services/backup_daemon/tell/alert_outbox.h"

#include <algorithm>

namespace services {
namespace {

using standalone::Statement;

constexpr long long FIRST_PAUSE = 60;  // seconds
constexpr long long LONGEST_PAUSE = 3600;
constexpr long long DOUBLINGS = 6;  // make the one more than the other

constexpr char ROWS[] =
    "SELECT number, way, recipient, made, attempts, id, subject, text, object, last_failure "
    "FROM alert ";

WaitingAlert alert_of(Statement& row) {
    return {.number = row.integer(0),
            .receiver = {static_cast<AlertWay>(row.integer(1)), row.text(2)},
            .made = row.integer(3),
            .attempts = row.integer(4),
            .message = {.id = row.text(5),
                        .subject = row.text(6),
                        .text = row.text(7),
                        .object = row.text(8)},
            .last_failure = row.text(9)};
}

long long pause_after(long long attempts) {
    return std::min(FIRST_PAUSE << std::min(attempts - 1, DOUBLINGS), LONGEST_PAUSE);
}

}  // namespace

void AlertOutbox::put(const AlertMessage& message, const std::vector<AlertReceiver>& receivers,
                      long long now) {
    Statement insert = database_.prepare(
        "INSERT INTO alert (way, recipient, id, made, subject, text, object, about) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    for (const AlertReceiver& receiver : receivers) {
        insert.bind(1, static_cast<long long>(receiver.way)).bind(2, receiver.recipient);
        insert.bind(3, message.id).bind(4, now).bind(5, message.subject);
        insert.bind(6, message.text).bind(7, message.object).bind(8, message.about).step();
        insert.reset();
    }
}

std::optional<WaitingAlert> AlertOutbox::due(AlertWay way, long long now) {
    if (!is_anything_for(way)) return {};
    // An attempt farther away than any pause was planned by a clock that was wrong. "+" keeps
    // SQLite to the order of numbers, in which a due one comes early: by the index of ways it would
    // sort all that wait, each second.
    Statement row = database_.prepare(
        std::string(ROWS) +
        "WHERE +way = ?1 AND (next_attempt <= ?2 OR next_attempt > ?3) AND "
        "(about = '' OR NOT EXISTS (SELECT 1 FROM alert AS older WHERE older.way = alert.way "
        "AND older.recipient = alert.recipient AND older.about = alert.about "
        "AND older.number < alert.number)) "
        "ORDER BY number LIMIT 1");
    row.bind(1, static_cast<long long>(way)).bind(2, now).bind(3, now + LONGEST_PAUSE);
    if (!row.step()) return {};
    return alert_of(row);
}

bool AlertOutbox::is_anything_for(AlertWay way) {
    Statement row = database_.prepare("SELECT 1 FROM alert WHERE way = ? LIMIT 1");
    return row.bind(1, static_cast<long long>(way)).step();
}

void AlertOutbox::arrived(const WaitingAlert& alert) {
    standalone::Transaction transaction(database_);
    remove(alert.number);
    forget_given_up(alert.receiver);
    Statement hurry = database_.prepare(
        "UPDATE alert SET next_attempt = 0 WHERE way = ? AND recipient = ? AND number < ?");
    hurry.bind(1, static_cast<long long>(alert.receiver.way)).bind(2, alert.receiver.recipient);
    hurry.bind(3, alert.number).step();
    transaction.commit();
}

void AlertOutbox::reached(const AlertReceiver& receiver) {
    standalone::Transaction transaction(database_);
    forget_given_up(receiver);
    Statement hurry =
        database_.prepare("UPDATE alert SET next_attempt = 0 WHERE way = ? AND recipient = ?");
    hurry.bind(1, static_cast<long long>(receiver.way)).bind(2, receiver.recipient).step();
    transaction.commit();
}

void AlertOutbox::remove(long long number) {
    database_.prepare("DELETE FROM alert WHERE number = ?").bind(1, number).step();
}

void AlertOutbox::forget_given_up(const AlertReceiver& receiver) {
    Statement forget =
        database_.prepare("DELETE FROM alert_given_up WHERE way = ? AND recipient = ?");
    forget.bind(1, static_cast<long long>(receiver.way)).bind(2, receiver.recipient).step();
}

void AlertOutbox::give_up(const WaitingAlert& alert, const std::string& why, long long now) {
    standalone::Transaction transaction(database_);
    remove(alert.number);
    Statement note = database_.prepare(
        "INSERT OR REPLACE INTO alert_given_up (way, recipient, time, why) VALUES (?, ?, ?, ?)");
    note.bind(1, static_cast<long long>(alert.receiver.way)).bind(2, alert.receiver.recipient);
    note.bind(3, now).bind(4, why).step();
    transaction.commit();
}

bool AlertOutbox::failed(const WaitingAlert& alert, const std::string& why, long long now) {
    const long long attempts = alert.attempts + 1;
    if (attempts >= MOST_ATTEMPTS) {
        give_up(alert, why, now);
        return false;
    }
    Statement update = database_.prepare(
        "UPDATE alert SET attempts = ?1, next_attempt = ?2, last_failure = ?3 WHERE number = ?4");
    update.bind(1, attempts).bind(2, now + pause_after(attempts)).bind(3, why);
    update.bind(4, alert.number).step();
    return true;
}

void AlertOutbox::forget_others(const std::vector<AlertReceiver>& receivers) {
    std::vector<AlertReceiver> others;
    Statement row = database_.prepare("SELECT way, recipient FROM alert_given_up");
    while (row.step()) {
        const AlertReceiver found{static_cast<AlertWay>(row.integer(0)), row.text(1)};
        if (std::ranges::find(receivers, found) == receivers.end()) others.push_back(found);
    }
    row.reset();
    for (const AlertReceiver& receiver : others) forget_given_up(receiver);
}

long long AlertOutbox::waiting() {
    Statement row = database_.prepare("SELECT count(*) FROM alert");
    row.step();
    return row.integer(0);
}

}  // namespace services
