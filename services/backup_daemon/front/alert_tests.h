// Test alerts that somebody asks the daemon for: one at a time.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/tell/alert_trial.h"
#include "services/http_service.h"

namespace services {

/// The test that goes on, or the last one. The daemon itself sends it: what works for it works for
/// alerts.
class AlertTests {
public:
    /// @param memory   the daemon's own database; outlives it
    /// @param recorder as recorder_name() has it
    AlertTests(standalone::Database& memory, std::string recorder)
        : outbox_(memory), recorder_(std::move(recorder)) {}

    /// Begins one, to everybody who is configured.
    /// @return its number
    /// @throws HttpError 409 while one goes on, 422 when nobody is to get alerts
    HttpReply begin();

    /// What has come of it so far.
    /// @throws HttpError 404 when there was none since the daemon's start
    HttpReply tell();

    /// Ends in time what nobody asks for any more, and has what waits for those whom the test has
    /// reached be tried again. Now and then; it never waits.
    /// @throws standalone::DatabaseError: that is noted in the next call
    void look();

private:
    AlertOutbox outbox_;
    const std::string recorder_;
    std::optional<AlertTrial> trial_;
    bool is_noted_ = true;
    long long number_ = 0;
};

/// Adds the routes of `tests`, which outlives the service's run; docs/formats.md, "Alert tests".
/// @throws std::runtime_error when a port cannot be had
void add_alert_test_routes(HttpService& service, AlertTests& tests);

}  // namespace services
