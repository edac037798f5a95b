// How far each task's last run has come, in the daemon's own database, for people to look at.
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/database.h"

namespace services {

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

/// The figures by task; identifiers are decimal, as all of tasks are. Any call may throw
/// standalone::DatabaseError.
class ProgressStore {
public:
    /// @param database with deferred durability: figures that are written every second need not
    ///        be on disk each time
    explicit ProgressStore(standalone::Database& database) : database_(database) {}

    /// Nothing when the task has never run.
    std::optional<RunFigures> find(const std::string& task_id);

    /// Writes a run's figures in the place of earlier ones of the task, and keeps its rate where
    /// the newest one kept is five seconds old.
    void set(const std::string& task_id, const RunFigures& figures);

private:
    void keep_rate(const std::string& task_id, const RunFigures& figures);

    standalone::Database& database_;
};

}  // namespace services
