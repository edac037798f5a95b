// A test alert, sent now, and what comes of it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_outbox.h"
#include "services/backup_daemon/tell/sending_process.h"

namespace services {

/// Somebody who is to get the test.
struct TestedReceiver {
    AlertReceiver receiver;               ///< of a mail without an address when none is known
    std::optional<AttemptResult> result;  ///< nothing while it is tried
};

/// Goes to all receivers at a time, past the outbox, by the same means as alerts. Destroying it
/// ends what still goes on.
class AlertTrial {
public:
    /// Begins; what keeps one of them from beginning is a result, too.
    /// @param way "mail", "web_hook", or "all" that are configured
    /// @param recorder as recorder_name() has it
    /// @throws std::runtime_error when there is no such way, or none is configured
    AlertTrial(const std::string& way, const std::string& recorder);

    /// Takes note of what has come of it; never waits.
    void look();

    /// Waits until it is over.
    void finish();

    /// Whether each receiver has a result: after SendingProcess::LONGEST at the latest, for whoever
    /// looks.
    bool is_over() const;

    const std::vector<TestedReceiver>& receivers() const { return receivers_; }

    /// What waits for those whom the test has reached is due.
    /// @throws standalone::DatabaseError
    void note_in(AlertOutbox& outbox) const;

private:
    std::vector<TestedReceiver> receivers_;
    std::vector<std::unique_ptr<SendingProcess>> processes_;  // one each; null: it has a result
};

}  // namespace services
