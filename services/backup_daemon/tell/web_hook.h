// Tells a web hook of an alert: HTTP POST of a JSON object, signed.
#pragma once

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_settings.h"

namespace services {

/// One attempt. The alert has arrived when the server answers with a status of 200 to 299; nobody
/// is followed anywhere else. What the server sends is read up to a few kilobytes.
/// @throws std::runtime_error when the alert cannot be signed, or the library not be used
void tell_web_hook(const WebHookSettings& settings, const AlertMessage& message,
                   const AttemptReport& report);

}  // namespace services
