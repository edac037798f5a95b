// Sends the alerts that wait: one at a time on each way, each in a process of its own.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_outbox.h"
#include "services/backup_daemon/tell/sending_process.h"
#include "services/complaints.h"

namespace services {

/// Nobody waits for a mail server or a web hook, and none of them for another. What does not arrive
/// is told on standard error, and so is what is given up.
class AlertSender {
public:
    /// What is to be done to send an alert; an exception is why it cannot be.
    using Maker = std::function<Attempt(const WaitingAlert&)>;

    /// @param database outlives the sender
    /// @param attempt_of what is done for an alert
    AlertSender(standalone::Database& database, Maker attempt_of)
        : outbox_(database), attempt_of_(std::move(attempt_of)) {}

    /// Takes note of what has arrived or has not, begins what is due.
    /// Once a second or so; it never waits.
    /// @param now seconds since the epoch
    /// @throws standalone::DatabaseError: what came of an attempt is noted in the next call, then,
    ///         and the alert is not sent again before
    void look(long long now);

    /// How many alerts were given up since this sender was made, each of their receivers by itself.
    long long given_up() const { return given_up_; }

private:
    /// An alert that is on its way.
    struct Journey {
        WaitingAlert alert;
        std::unique_ptr<SendingProcess> process;
        std::optional<AttemptResult> result;
    };
    using Place = std::optional<Journey>;

    void begin(AlertWay way, Place& place, long long now);
    void finish(Place& place, long long now);
    void note(const WaitingAlert& alert, const AttemptResult& result, long long now);
    void tell_given_up(const WaitingAlert& alert, const std::string& why);

    AlertOutbox outbox_;
    Maker attempt_of_;
    Complaints complaints_;
    long long given_up_ = 0;
    std::array<Place, 2> places_;  // a way each
};

}  // namespace services
