// Starts tasks whose schedules come due, and remembers when they do next.
#pragma once

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/calendar.h"

namespace services {

class ScheduleKeeper {
public:
    /// All of it outlives the keeper.
    /// @param memory the daemon's own database, with full durability
    ScheduleKeeper(standalone::TaskStore& tasks, standalone::Database& memory, RunQueue& queue)
        : tasks_(tasks), notes_(memory), queue_(queue) {}

    /// Looks at all tasks; the more often, the more punctual they are.
    /// @param now seconds since the epoch
    void look(long long now, const TimeZone& zone);

private:
    void look(const TDataBackupConfig& task, long long now, const TimeZone& zone);

    standalone::TaskStore& tasks_;
    ScheduleStore notes_;
    RunQueue& queue_;
};

}  // namespace services
