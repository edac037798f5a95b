// What the backup daemon tells monitoring systems on a port of its own.
#include "services/backup_daemon/front/metrics_route.h"

#include <ctime>

#include "platform/service_addresses.h"
#include "services/backup_daemon/run/destination.h"

namespace services {
namespace {

constexpr char AGENTS_USER[] = "prometheus";
constexpr char CONTENT_TYPE[] = "text/plain; version=0.0.4; charset=utf-8";

/// No run of a disabled task asks its share again: what it has told stays as it was for ever.
std::set<std::string> shares_of(const std::list<TDataBackupConfig>& tasks) {
    std::set<std::string> shares;
    for (const TDataBackupConfig& task : tasks)
        if (task.enable) shares.insert(destination_of(task).share_key());
    return shares;
}

void add_runs(Metrics& metrics, BackupRunner& runner) {
    std::map<std::string, RunMetrics> runs;
    for (const RunningTask& task : runner.running()) {
        runs[task.task_id] = {task.percent, task.rate};
        metrics.lanes += task.lanes;
    }
    for (TaskMetrics& task : metrics.tasks) {
        task.retries = runner.retries(task.task_id);
        if (const auto run = runs.find(task.task_id); run != runs.end()) task.run = run->second;
    }
}

HttpReply tell(const MetricsSources& sources) {
    const auto& tasks = sources.store.known();
    Metrics metrics = sources.reader.read(tasks, shares_of(tasks), std::time(nullptr));
    metrics.waiting = sources.queue.waiting().size();
    metrics.given_up = sources.sender.given_up();
    add_runs(metrics, sources.runner);
    return {CONTENT_TYPE, metrics_text(metrics)};
}

}  // namespace

void add_metrics_route(HttpService& service, const MetricsSources& sources) {
    service.open(METRICS_PORT, user_named(AGENTS_USER));
    service.route(METRICS_PORT, Method::get, METRICS_PATH,
                  [sources](const HttpRequest&) { return tell(sources); });
}

}  // namespace services
