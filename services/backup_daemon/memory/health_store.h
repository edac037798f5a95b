// Keeps of each task since when it is, or from when on it will be, overdue.
#pragma once

#include <map>
#include <string>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/run_record.h"

namespace services {

/// What is remembered of a task's schedule to tell when it is overdue. Any call may throw
/// standalone::DatabaseError.
class HealthStore {
public:
    explicit HealthStore(standalone::Database& database) : database_(database) {}

    /// How tasks are, by task: all but those that have neither run nor been set here.
    std::map<std::string, standalone::TaskHealth> all();

    /// Writes of tasks all but number and goal of the last success, which the history tells
    /// (run_history.h): all or nothing, with one wait for the disk.
    void write(const std::map<std::string, standalone::TaskHealth>& changes);

private:
    standalone::Database& database_;
};

}  // namespace services
