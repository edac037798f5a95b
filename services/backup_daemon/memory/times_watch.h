// Tells when what is kept of tasks' schedules and successes may be otherwise.
#pragma once

#include "services/backup_daemon/memory/memory_database.h"

namespace services {

/// Watches next runs and health of tasks (tables next_run and task_health), whoever changes them.
/// Runs write something each second, and so do alerts on their way: of the daemon's two connections
/// only what they change in these tables counts. A stranger's change, of which nobody knows the
/// table, is seen by both connections, one of their own by the other alone; where both have written
/// since the last call, that cannot be told apart, and counts.
class TimesWatch {
public:
    /// @param memory outlives the watch; nothing else counts rows of its connections
    /// @throws standalone::DatabaseError
    explicit TimesWatch(Memory& memory);

    /// Another one when anything of it may have changed since the last call. To be asked before it
    /// is read. A stranger's change of the very moment counts with the next call at the latest.
    /// @throws standalone::DatabaseError
    long long version();

private:
    /// What a connection tells.
    struct Seen {
        long long others = 0;  ///< as Database::Version has it
        long long own = 0;     ///< rows of these tables
    };

    static Seen seen_by(standalone::Database& connection);

    Memory& memory_;
    Seen schedules_;
    Seen runs_;
    bool runs_saw_others_ = false;  ///< in the last call
    long long version_ = 0;
};

}  // namespace services
