// Has what deleted tasks left forgotten when there may be anything of it.
#pragma once

#include <optional>
#include <utility>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/memory_database.h"

namespace services {

/// Rows of a task that is gone can only be there when one has gone, or when something has been
/// written since, as the end of a run whose task was deleted meanwhile. So they are looked for
/// behind changes of the tasks and of the memory, whoever makes them; in between nothing is read.
class Sweeper {
public:
    /// Both outlive the sweeper.
    Sweeper(standalone::TaskStore& tasks, Memory& memory) : tasks_(tasks), memory_(memory) {}

    /// Forgets what there is to forget (keep_only()); once a second or so.
    /// @throws standalone::DatabaseError: it is looked for again with the next look
    void look() {
        const Versions now{tasks_.version(), memory_.runs.version()};
        if (swept_ == now) return;
        keep_only(memory_, tasks_.known());
        swept_ = now;
    }

private:
    using Version = standalone::Database::Version;
    using Versions = std::pair<Version, Version>;  ///< of the tasks, and of the memory

    standalone::TaskStore& tasks_;
    Memory& memory_;
    std::optional<Versions> swept_;  ///< before the last look
};

}  // namespace services
