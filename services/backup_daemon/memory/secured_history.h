// The history of runs with a row on disk before its run sends a byte, and few waits for the disk.
#pragma once

#include "backup/task_record.h"
#include "platform/standalone/store/task_goal.h"
#include "services/backup_daemon/memory/run_history.h"

namespace services {

/// Rows are opened and closed without waiting for the disk: no kill takes them, and after a power
/// cut the stored task tells how its run ended (when/run_queue.h). What no task would tell is that
/// there was a run, so its row is secured before it sends anything.
class SecuredHistory : public RunHistory {
public:
    /// @param memory  the daemon's own database, with deferred durability
    /// @param durable the same with full durability
    SecuredHistory(standalone::Database& memory, standalone::Database& durable)
        : RunHistory(memory), durable_(durable) {}

    /// Has a task's open run, and all that was written before, on disk when it returns.
    /// @param task as the run has read it: its success will be one of that
    /// @throws standalone::DatabaseError
    void secure(const TDataBackupConfig& task, long long now) {
        durable_.prepare("UPDATE run SET seen = ?, goal = ? WHERE taskID = ? AND outcome IS NULL")
            .bind(1, now)
            .bind(2, standalone::task_goal(task))
            .bind(3, std::stoll(task.taskID))
            .step();
    }

private:
    standalone::Database& durable_;
};

}  // namespace services
