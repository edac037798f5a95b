// Starts tasks whose schedules come due, and remembers when they do next.
#pragma once

#include <map>
#include <string>

#include "platform/standalone/store/calendar.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "services/backup_daemon/when/run_queue.h"

namespace services {

/// What has been started is noted behind it. A note that cannot be written is kept, and no schedule
/// is looked at before it is written: nothing is started twice.
class ScheduleKeeper {
public:
    /// All of it outlives the keeper.
    /// @param memory the daemon's own database, with full durability
    ScheduleKeeper(standalone::TaskStore& tasks, standalone::Database& memory, RunQueue& queue)
        : tasks_(tasks), notes_(memory), queue_(queue) {}

    /// Looks at all tasks; the more often, the more punctual they are.
    /// @param now seconds since the epoch
    /// @throws standalone::DatabaseError; whatever is left has its turn with the next look
    void look(long long now, const standalone::TimeZone& zone);

private:
    void look(const TDataBackupConfig& task, long long now, const standalone::TimeZone& zone);
    void write_notes();

    standalone::TaskStore& tasks_;
    ScheduleStore notes_;
    RunQueue& queue_;
    std::map<std::string, standalone::NextRun> unwritten_;  ///< by task
};

}  // namespace services
