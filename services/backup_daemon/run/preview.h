// Looks at what a task's run would do, over one connection, and does nothing of it.
#pragma once

#include "platform/standalone/store/database.h"
#include "services/backup_daemon/run/run_preview.h"

namespace services {

/// Finds out what a run of the task would do if it began now. Waits for the disks and for the
/// server, in a loop of its own; nothing is tried again, and a server that does not answer for 90
/// seconds is waited for no longer. It may be called beside a daemon, whatever
/// the task is at there.
/// @param identity this recorder's
/// @param config   the configuration database
/// @param memory   the daemon's own database; a connection that only reads will do
/// @throws std::runtime_error with one line: there is no such task, the share cannot be reached
RunPreview preview_of(const std::string& task_id, const std::string& identity,
                      standalone::Database& config, standalone::Database& memory);

}  // namespace services
