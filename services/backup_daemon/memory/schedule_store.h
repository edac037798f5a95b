// When each task's schedule comes due next, in the daemon's own database.
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/schedule.h"

namespace services {

/// The next runs by task; identifiers are decimal, as all of tasks are. Any call may throw
/// standalone::DatabaseError.
class ScheduleStore {
public:
    /// @param database with full durability: a next run that is lost would come twice, or never
    explicit ScheduleStore(standalone::Database& database) : database_(database) {}

    /// Nothing when none is remembered.
    std::optional<standalone::NextRun> find(const std::string& task_id);

    /// Remembers a next run in the place of an earlier one.
    void set(const std::string& task_id, const standalone::NextRun& next);

    /// Forgets a task's next run; there need not be one.
    void clear(const std::string& task_id);

private:
    standalone::Database& database_;
};

}  // namespace services
