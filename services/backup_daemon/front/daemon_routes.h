// What the backup daemon answers on HTTP; docs/formats.md, "Daemon messages".
#pragma once

#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/http_service.h"

namespace services {

inline constexpr int NOTICE_PORT = 10205;
inline constexpr char NOTICE_PATH[] = "/databackupService/notify";
inline constexpr int TASK_PORT = 10141;
inline constexpr char TASK_PATH[] = "/cfg/DataBackupService";

/// Adds the daemon's routes, which work on `queue` and `runner` as long as the service lives.
/// @throws std::runtime_error when a port cannot be had
void add_daemon_routes(HttpService& service, RunQueue& queue, BackupRunner& runner);

}  // namespace services
