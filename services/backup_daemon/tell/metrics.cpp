// The daemon's figures for monitoring systems, and their text format.
#include "services/backup_daemon/tell/metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include "platform/standalone/store/utf8.h"
#include "platform/version.h"

namespace services {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using standalone::RunOutcome;
using Labels = std::vector<ClientMetric::Label>;

constexpr char PREFIX[] = "recorder_backup_";
constexpr double WHOLE_PERCENT = 100;
constexpr RunOutcome OUTCOMES[] = {RunOutcome::success, RunOutcome::failed, RunOutcome::cancelled,
                                   RunOutcome::interrupted};

MetricFamily counter(const char* name, const char* help) {
    return {PREFIX + std::string(name), help, MetricType::Counter, {}};
}

MetricFamily gauge(const char* name, const char* help) {
    return {PREFIX + std::string(name), help, MetricType::Gauge, {}};
}

template <typename Number>
void add(MetricFamily& family, Number value, Labels labels = {}) {
    ClientMetric metric;
    metric.label = std::move(labels);
    // Which of them is printed is a matter of the family's type.
    metric.counter.value = metric.gauge.value = static_cast<double>(value);
    family.metric.push_back(std::move(metric));
}

Labels of_task(const TaskMetrics& task) {
    return {{"task_id", task.task_id}, {"task", standalone::valid_utf8(task.name)}};
}

Labels with_outcome(const TaskMetrics& task, RunOutcome outcome) {
    Labels labels = of_task(task);
    labels.push_back({"outcome", std::string(outcome_text(outcome))});
    return labels;
}

/// What runs have done since the daemon began. All of it begins at 0, so that the first failure is
/// an increase.
struct Totals {
    MetricFamily runs = counter("runs_total", "Runs that have ended, by outcome.");
    MetricFamily bytes = counter("sent_bytes_total", "Bytes sent, some of them twice.");
    MetricFamily files = counter("sent_files_total", "Files that are complete on their share.");
    MetricFamily failed = counter("failed_files_total", "Files that runs have given up.");
    MetricFamily retries = counter("retries_total", "Attempts to connect again after a loss.");

    void add_task(const TaskMetrics& task) {
        for (const RunOutcome outcome : OUTCOMES)
            add(runs, task.total.runs.at(static_cast<std::size_t>(outcome)),
                with_outcome(task, outcome));
        add(bytes, task.total.sent.bytes, of_task(task));
        add(files, task.total.sent.files, of_task(task));
        add(failed, task.total.files_failed, of_task(task));
        add(retries, task.retries, of_task(task));
    }
};

/// How tasks are.
struct States {
    MetricFamily enabled = gauge("task_enabled", "Whether a task's schedule is switched on.");
    MetricFamily overdue = gauge("overdue", "Whether a task should have succeeded by now.");
    MetricFamily success = gauge("last_success_timestamp_seconds",
                                 "When a task's last success ended; none before its first one.");
    MetricFamily outcome =
        gauge("last_run_outcome", "1 for the outcome of a task's newest run that has ended.");
    MetricFamily failed =
        gauge("last_run_failed",
              "Whether a task has failed, whatever was cancelled or interrupted since.");
    MetricFamily percent = gauge("run_progress_ratio", "Done bytes of a run that goes on, 0 to 1.");
    MetricFamily rate = gauge("run_bytes_per_second", "Present speed of a run that goes on.");

    void add_task(const TaskMetrics& task) {
        add(enabled, task.enabled, of_task(task));
        add(overdue, task.overdue, of_task(task));
        if (task.success_time) add(success, *task.success_time, of_task(task));
        if (task.last_outcome) add(outcome, 1, with_outcome(task, *task.last_outcome));
        add(failed, task.failed, of_task(task));
        if (!task.run) return;
        add(percent, task.run->percent / WHOLE_PERCENT, of_task(task));
        add(rate, task.run->rate, of_task(task));
    }
};

using Families = std::vector<MetricFamily>;

/// A family without samples would be a heading without a text.
void append(Families& families, MetricFamily family) {
    if (!family.metric.empty()) families.push_back(std::move(family));
}

void append_tasks(Families& families, const std::vector<TaskMetrics>& tasks) {
    Totals totals;
    States states;
    for (const TaskMetrics& task : tasks) {
        totals.add_task(task);
        states.add_task(task);
    }
    for (MetricFamily* family : {&totals.runs, &totals.bytes, &totals.files, &totals.failed,
                                 &totals.retries, &states.enabled, &states.overdue, &states.success,
                                 &states.outcome, &states.failed, &states.percent, &states.rate})
        append(families, std::move(*family));
}

void append_shares(Families& families, const std::vector<ShareMetrics>& shares) {
    MetricFamily free = gauge("share_free_bytes", "Free room, as the server told it last.");
    MetricFamily size = gauge("share_size_bytes", "All room, as the server told it last.");
    MetricFamily time = gauge("share_room_timestamp_seconds", "When the server has told its room.");
    for (const ShareMetrics& share : shares) {
        const Labels labels = {{"share", standalone::valid_utf8(share.share)}};
        add(free, share.free, labels);
        add(size, share.total, labels);
        add(time, share.time, labels);
    }
    append(families, std::move(free));
    append(families, std::move(size));
    append(families, std::move(time));
}

template <typename Number>
void append_one(Families& families, MetricFamily family, Number value, Labels labels = {}) {
    add(family, value, std::move(labels));
    families.push_back(std::move(family));
}

}  // namespace

std::string metrics_text(const Metrics& metrics) {
    const auto running = std::count_if(metrics.tasks.begin(), metrics.tasks.end(),
                                       [](const auto& task) { return task.run.has_value(); });
    Families families;
    append_one(families, gauge("build_info", "1, with the daemon's version."), 1,
               {{"version", RECORDER_VERSION}});
    append_tasks(families, metrics.tasks);
    append_shares(families, metrics.shares);
    append_one(families, gauge("running_runs", "Runs that go on."), running);
    append_one(families, gauge("waiting_tasks", "Tasks in the queue."), metrics.waiting);
    append_one(families, gauge("lanes", "Copying processes of the runs."), metrics.lanes);
    append_one(families, gauge("open_problems", "Problems that are not over."), metrics.problems);
    append_one(families, gauge("waiting_alerts", "Alerts that have not arrived yet."),
               metrics.alerts);
    append_one(families, counter("given_up_alerts_total", "Alerts that were given up."),
               metrics.given_up);
    append_one(families, counter("store_errors_total", "Calls to the databases that have failed."),
               metrics.store_errors);
    std::ostringstream text;
    prometheus::TextSerializer().Serialize(text, families);
    return std::move(text).str();
}

}  // namespace services
