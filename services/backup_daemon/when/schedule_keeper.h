// Starts tasks whose schedules come due, and remembers when they do next.
#pragma once

#include "platform/standalone/store/calendar.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/schedule_store.h"
#include "services/backup_daemon/memory/times_watch.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/last_look.h"

namespace services {

/// Tasks that come due at once are started together, and what has been started is noted behind it.
/// Notes that cannot be written are kept, and no schedule is looked at before they are written:
/// nothing is started twice.
class ScheduleKeeper {
public:
    /// All of it outlives the keeper.
    /// @param memory the daemon's own database, with full durability
    /// @param times  tells of changes of it
    ScheduleKeeper(standalone::TaskStore& tasks, standalone::Database& memory, TimesWatch& times,
                   RunQueue& queue)
        : tasks_(tasks), notes_(memory), times_(times), queue_(queue) {}

    /// Looks at all tasks when one has come due, or anything has changed since the last look; the
    /// more often it is called, the more punctual they are.
    /// @param now seconds since the epoch
    /// @throws standalone::DatabaseError; whatever is left has its turn with the next look
    void look(long long now, const standalone::TimeZone& zone);

private:
    /// What a look depends on.
    struct Seen {
        standalone::Database::Version tasks;
        long long times = 0;

        bool operator==(const Seen&) const = default;
    };

    long long look_at_all(long long now, const standalone::TimeZone& zone);
    void write_notes();

    standalone::TaskStore& tasks_;
    ScheduleStore notes_;
    TimesWatch& times_;
    RunQueue& queue_;
    ScheduleStore::Changes unwritten_;
    LastLook<Seen> last_look_;
};

}  // namespace services
