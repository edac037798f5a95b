// What outlives the daemon of a task's runs: when the next is due, how far the last one came.
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/database.h"

namespace services {

/// When a task's schedule comes due.
struct NextRun {
    std::string rule;   ///< the schedule that the time was reckoned with
    long long due = 0;  ///< seconds since the epoch
};

/// How far a run has come.
struct RunFigures {
    long long bytes_planned = 0;
    long long bytes_done = 0;
    double percent = 0;  ///< of the bytes, one decimal
    double rate = 0;     ///< bytes per second over the last 5 seconds
    long long files_done = 0;
    long long files_left = 0;
    long long files_failed = 0;
    std::optional<long long> seconds_left;  ///< nothing while it cannot be told
    std::string message;                    ///< what the run waits for or failed of; mostly ""
    long long time_ms = 0;                  ///< when this was so, milliseconds since the epoch
};

/// The daemon's notes about runs. Any call may throw DatabaseError.
class RunStore {
public:
    explicit RunStore(standalone::Database& database) : database_(database) {}

    std::optional<NextRun> next_run(const std::string& task_id);
    /// No such task: nothing happens.
    void set_next_run(const std::string& task_id, const NextRun& next);
    void clear_next_run(const std::string& task_id);

    std::optional<RunFigures> progress(const std::string& task_id);
    /// No such task: nothing happens.
    void set_progress(const std::string& task_id, const RunFigures& figures);

private:
    standalone::Database& database_;
};

}  // namespace services
