// Hands an alert to a mail server.
#pragma once

#include <string>

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_settings.h"

namespace services {

/// One attempt. The alert has arrived when the server has taken it. It is refused for good when the
/// answer to the recipient's address is one (550, say); any other refusal is one for now.
/// @param settings name one recipient
/// @param mail as mail_text() has made it
/// @throws std::runtime_error before anything is sent, when the password cannot be had or would go
///         to another machine in the clear
void send_by_smtp(const MailSettings& settings, const std::string& mail,
                  const AttemptReport& report);

}  // namespace services
