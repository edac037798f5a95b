// Keeps in the store from when on each task is overdue, so that whoever reads it needs no daemon.
#pragma once

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/health_store.h"
#include "services/backup_daemon/memory/schedule_store.h"

namespace services {

/// A task that a version without a history has run counts as having succeeded when that version
/// says so: its status is "success".
class OverdueKeeper {
public:
    /// Both outlive the keeper.
    /// @param memory the daemon's own database
    OverdueKeeper(standalone::TaskStore& tasks, standalone::Database& memory)
        : tasks_(tasks), health_(memory), next_runs_(memory) {}

    /// Looks at all tasks, behind the look at their schedules. Where nothing has changed, nothing
    /// is written.
    /// @param now     seconds since the epoch
    /// @param percent of a schedule's interval that a task may be late
    /// @throws standalone::DatabaseError; whatever is left has its turn with the next look
    void look(long long now, int percent);

private:
    standalone::TaskStore& tasks_;
    HealthStore health_;
    ScheduleStore next_runs_;
};

}  // namespace services
