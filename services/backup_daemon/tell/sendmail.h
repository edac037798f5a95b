// Hands an alert to the machine's own sendmail.
#pragma once

#include <string>

#include "services/backup_daemon/tell/alert_attempt.h"
#include "services/backup_daemon/tell/alert_settings.h"

namespace services {

/// One attempt: `sendmail -i -f FROM -- TO`, without a shell, with the mail on standard input and
/// an environment of PATH and LC_ALL=C.UTF-8 alone. The alert has arrived when the program ends
/// with status 0, and is refused for good when it ends with 67 (EX_NOUSER). It is killed with this
/// process, and when it says or writes more than a MiB.
/// @param settings name one recipient
/// @param mail as mail_text() has made it
/// @throws std::runtime_error when there is no process to be had
void send_by_sendmail(const MailSettings& settings, std::string mail, const AttemptReport& report);

}  // namespace services
