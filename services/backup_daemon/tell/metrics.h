// The daemon's figures for monitoring systems, and their text format.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/run_record.h"
#include "services/backup_daemon/tell/run_totals.h"

namespace services {

/// A run that goes on.
struct RunMetrics {
    double percent = 0;  ///< of the bytes
    double rate = 0;     ///< bytes per second
};

/// A task that is stored. Times are seconds since the epoch.
struct TaskMetrics {
    std::string task_id;
    std::string name;
    bool enabled = false;
    bool overdue = false;
    std::optional<long long> success_time;               ///< when its last success ended
    std::optional<standalone::RunOutcome> last_outcome;  ///< of its newest run that has ended
    bool failed = false;  ///< as the alerts and `recorderctl status` have it
    RunTotal total;
    long long retries = 0;
    std::optional<RunMetrics> run{};
};

/// A share that an enabled task copies to, whose server has told of its room. Bytes.
struct ShareMetrics {
    std::string share;  ///< "//server:port/share"
    long long free = 0;
    long long total = 0;
    long long time = 0;  ///< when it has, seconds since the epoch
};

/// All figures of one moment.
struct Metrics {
    std::vector<TaskMetrics> tasks;
    std::vector<ShareMetrics> shares;
    std::size_t waiting = 0;  ///< tasks in the queue
    std::size_t lanes = 0;    ///< copying processes of runs
    long long alerts = 0;     ///< that have not arrived yet
    long long given_up = 0;   ///< alerts that never will, since the daemon began
    long long problems = 0;   ///< that are not over
    long long store_errors = 0;
};

/// The text in which monitoring systems read them (prometheus.io/docs/instrumenting/
/// exposition_formats). Whatever bytes names have, the text is UTF-8, and a name ends nowhere
/// before its end.
std::string metrics_text(const Metrics& metrics);

}  // namespace services
