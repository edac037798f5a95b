// What the backup daemon answers on HTTP; docs/formats.md, "Daemon messages".
#pragma once

#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/http_service.h"

namespace services {

/// Adds the daemon's routes, which work on `queue` and `runner` as long as the service lives.
/// @throws std::runtime_error when a port cannot be had
void add_daemon_routes(HttpService& service, RunQueue& queue, BackupRunner& runner);

}  // namespace services
