// When each task's schedule comes due next, in the daemon's own database.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/schedule.h"

namespace services {

/// The next runs by task; identifiers are decimal, as all of tasks are. Any call may throw
/// standalone::DatabaseError.
class ScheduleStore {
public:
    using NextRuns = std::map<std::string, standalone::NextRun>;

    /// What is to be remembered of tasks; nothing: nothing any more.
    using Changes = std::map<std::string, std::optional<standalone::NextRun>>;

    /// @param database with full durability: a next run that is lost would come twice, or never
    explicit ScheduleStore(standalone::Database& database) : database_(database) {}

    /// All that are remembered.
    NextRuns all();

    /// Remembers next runs in the place of earlier ones and forgets others, of which there need be
    /// none: all or nothing, with one wait for the disk.
    void write(const Changes& changes);

private:
    standalone::Database& database_;
};

}  // namespace services
