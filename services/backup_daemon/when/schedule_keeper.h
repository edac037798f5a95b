// Starts tasks whose schedules come due, and remembers when they do next.
#pragma once

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/run_store.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/calendar.h"

namespace services {

class ScheduleKeeper {
public:
    /// All of it outlives the keeper.
    ScheduleKeeper(standalone::TaskStore& tasks, standalone::Database& database, RunQueue& queue)
        : tasks_(tasks), notes_(database), queue_(queue) {}

    /// Looks at all tasks; the more often, the more punctual they are.
    /// @param now seconds since the epoch
    void look(long long now, const TimeZone& zone);

private:
    void look(const TDataBackupConfig& task, long long now, const TimeZone& zone);

    standalone::TaskStore& tasks_;
    RunStore notes_;
    RunQueue& queue_;
};

}  // namespace services
