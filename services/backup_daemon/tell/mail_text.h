// An alert as a mail: header and body as they go over the wire (RFC 5322, 2045 and 2047).
#pragma once

#include <string>

#include "services/backup_daemon/tell/alert_settings.h"

namespace services {

/// The whole mail, lines ended by CRLF and all of it ASCII, whatever the message has. The same
/// alert gives the same mail at each attempt, its Message-ID among it.
/// @param made when the alert was made, in seconds since the epoch
std::string mail_text(const MailSettings& settings, const AlertMessage& message, long long made);

}  // namespace services
