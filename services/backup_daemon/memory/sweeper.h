// Has what deleted tasks left forgotten when there may be anything of it.
#pragma once

#include <optional>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/memory_database.h"

namespace services {

/// Rows of a task that is gone can only be there when one has gone, or when a run has written since
/// whose task was deleted meanwhile. Those are looked for behind each change of the tasks, whoever
/// makes it, and behind each run's end; in between nothing is read.
class Sweeper {
public:
    /// Both outlive the sweeper.
    Sweeper(standalone::TaskStore& tasks, Memory& memory) : tasks_(tasks), memory_(memory) {}

    /// Forgets what there is to forget (keep_only()); once a second or so.
    /// @throws standalone::DatabaseError: it is looked for again with the next look
    void look() {
        const standalone::Database::Version tasks = tasks_.version();
        if (swept_ == tasks) return;
        keep_only(memory_, tasks_.known());
        swept_ = tasks;
    }

    /// A run has written all that it ever will: the next look is one, whatever has changed.
    void run_has_ended() { swept_.reset(); }

private:
    standalone::TaskStore& tasks_;
    Memory& memory_;
    std::optional<standalone::Database::Version> swept_;  ///< of the tasks at the last look
};

}  // namespace services
