// Keeps of each task since when it is, or from when on it will be, overdue.
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/run_record.h"

namespace services {

/// What is remembered of a task's schedule to tell when it is overdue. Any call may throw
/// standalone::DatabaseError.
class HealthStore {
public:
    explicit HealthStore(standalone::Database& database) : database_(database) {}

    /// Nothing when the task has neither run nor been set here.
    std::optional<standalone::TaskHealth> find(const std::string& task_id);

    /// Writes all but number and goal of the last success, which the history tells
    /// (run_history.h).
    void set(const std::string& task_id, const standalone::TaskHealth& health);

private:
    standalone::Database& database_;
};

}  // namespace services
