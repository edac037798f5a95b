// What the backup daemon tells monitoring systems on a port of its own.
#pragma once

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/tell/alert_sender.h"
#include "services/backup_daemon/tell/metrics_reader.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/http_service.h"

namespace services {

/// What the figures are gathered from; all of it outlives the service.
struct MetricsSources {
    standalone::TaskStore& store;
    RunQueue& queue;
    BackupRunner& runner;
    MetricsReader& reader;
    const AlertSender& sender;
};

/// Adds the route. On its port the user "prometheus" is answered, too, where there is one: agents
/// run as that in Debian.
/// @throws std::runtime_error when the port cannot be had
void add_metrics_route(HttpService& service, const MetricsSources& sources);

}  // namespace services
