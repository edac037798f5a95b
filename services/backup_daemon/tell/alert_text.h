// The words of alerts, for people, and the same for programs.
#pragma once

#include <string>

#include "services/backup_daemon/tell/alert_outbox.h"
#include "services/backup_daemon/tell/problem.h"

namespace services {

/// What an alert tells of a problem.
enum class AlertEvent {
    raised,    ///< it is there
    reminder,  ///< it is still there
    resolved,  ///< it is over
};

/// What people call this recorder: the machine's name and the first digits of its identity, as
/// machines may have one name.
std::string recorder_name(const std::string& identity);

/// Makes an alert with an identifier of its own, at random. What others have named (tasks, files,
/// servers) is in one line each, cut, and valid UTF-8; no password is in it. Times are the
/// machine's local ones, with the zone.
/// @param problem  of one that is over, `since` is what it was when it was raised
/// @param recorder as recorder_name() has it
/// @param now      seconds since the epoch
AlertMessage alert_message(AlertEvent event, const Problem& problem, const std::string& recorder,
                           long long now);

/// An alert of nothing, to see whether it arrives.
AlertMessage test_message(const std::string& recorder, long long now);

}  // namespace services
