// Reads how the backups are: the databases, and whether the daemon is there.
#pragma once

#include <functional>

#include "platform/standalone/store/backup_status.h"

namespace standalone {

/// Asks the backup daemon whether it is there.
/// @param seconds how long it may take
bool backup_daemon_answers(long seconds);

/// Reads the databases and judges how the backups are. What cannot be read of the daemon's own
/// database is a problem that the answer names.
/// @param config         the configuration database
/// @param daemon_answers whether the daemon is there; asked when everything is read
/// @throws std::exception when the tasks cannot be read
BackupStatus backup_status(Database& config, const std::function<bool()>& daemon_answers);

}  // namespace standalone
