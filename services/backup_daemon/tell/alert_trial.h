// A test alert, sent now, and what comes of it.
#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_attempts.h"
#include "services/backup_daemon/tell/alert_outbox.h"
#include "services/backup_daemon/tell/sending_process.h"

namespace services {

/// Somebody who is to get the test.
struct TestedReceiver {
    AlertReceiver receiver;               ///< of a mail without an address when none is known
    std::optional<AttemptResult> result;  ///< nothing while it is tried, or waits for that
};

/// Test alerts for everybody on this way.
/// @param way "mail", "web_hook", or "all" that are configured
/// @param recorder as recorder_name() has it
/// @throws std::runtime_error when there is no such way, or none is configured
std::vector<WaitingAlert> test_alerts(const std::string& way, const std::string& recorder);

/// Goes past the outbox, and otherwise as alerts go: one at a time on each way, each in a process
/// of its own. Destroying it ends what still goes on.
class AlertTrial {
public:
    /// What is to be done to send an alert; an exception is why it cannot be.
    using Maker = std::function<Attempt(const WaitingAlert&)>;

    /// Begins.
    /// @param attempt_of what is done for an alert
    /// @param limit for all of it
    explicit AlertTrial(std::vector<WaitingAlert> alerts, Maker attempt_of = services::attempt_of,
                        std::chrono::seconds limit = SendingProcess::LONGEST);

    /// Takes note of what has come of it, begins what is next; never waits.
    void look();

    /// Waits until it is over.
    void finish();

    /// Whether each receiver has a result: after the limit at the latest, for whoever looks.
    bool is_over() const;

    const std::vector<TestedReceiver>& receivers() const { return receivers_; }

    /// What waits for those whom the test has reached is due.
    /// @throws standalone::DatabaseError
    void note_in(AlertOutbox& outbox) const;

private:
    using Process = std::unique_ptr<SendingProcess>;

    std::optional<AttemptResult> go_on(const WaitingAlert& alert, Process& process);
    std::optional<AttemptResult> begin(const WaitingAlert& alert, Process& process);

    const std::vector<WaitingAlert> alerts_;
    const Maker attempt_of_;
    const std::chrono::seconds limit_;
    const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    std::vector<TestedReceiver> receivers_;  // of the alerts, in their order
    std::array<Process, 2> processes_;       // a way each; null: none is tried just now
};

}  // namespace services
