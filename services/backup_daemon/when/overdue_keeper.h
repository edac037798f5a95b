// Keeps in the store from when on each task is overdue, so that whoever reads it needs no daemon.
#pragma once

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/health_store.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "services/backup_daemon/memory/times_watch.h"
#include "services/last_look.h"

namespace services {

/// A task that a version without a history has run counts as having succeeded when that version
/// says so: its status is "success".
class OverdueKeeper {
public:
    /// All of it outlives the keeper.
    /// @param memory the daemon's own database
    /// @param times  tells of changes of it
    OverdueKeeper(standalone::TaskStore& tasks, standalone::Database& memory, TimesWatch& times)
        : tasks_(tasks), health_(memory), next_runs_(memory), times_(times) {}

    /// Looks at all tasks, behind the look at their schedules, when anything may be otherwise than
    /// at the last look. Where nothing has changed, nothing is written.
    /// @param now     seconds since the epoch
    /// @param percent of a schedule's interval that a task may be late
    /// @throws standalone::DatabaseError: nothing was written, and is with the next look
    void look(long long now, int percent);

private:
    /// What a look depends on.
    struct Seen {
        standalone::Database::Version tasks;
        long long times = 0;
        int percent = 0;

        bool operator==(const Seen&) const = default;
    };

    standalone::TaskStore& tasks_;
    HealthStore health_;
    ScheduleStore next_runs_;
    TimesWatch& times_;
    LastLook<Seen> last_look_;
};

}  // namespace services
