// What is done to send an alert on its way, as it is configured now.
#pragma once

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_outbox.h"

namespace services {

/// To be done in a process of its own: only the settings are read here.
/// @throws std::runtime_error as mail_settings() and web_hook_settings()
Attempt attempt_of(const WaitingAlert& alert);

}  // namespace services
