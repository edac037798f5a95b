// Runs tasks for the queue: starts runs, writes their progress and events, hands on their ends.
#pragma once

#include <map>
#include <memory>

#include "platform/standalone/store/channel_store.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/run/backup_run.h"
#include "services/backup_daemon/when/run_queue.h"

namespace services {

/// A run as a query shows it.
struct RunningTask {
    std::string task_id;
    double percent = 0;  ///< of the bytes
    double rate = 0;     ///< bytes per second
};

class BackupRunner : public TaskRunner {
public:
    /// All of it outlives the runner. Each database connection is this runner's own thread's.
    /// @param config the configuration database
    /// @param memory the daemon's own database, with deferred durability
    BackupRunner(event_base* loop, standalone::Database& config, standalone::Database& memory);

    /// Whom to tell of connections and ends. Before the first run.
    void report_to(RunQueue& queue) { queue_ = &queue; }

    void begin(const TDataBackupConfig& task, bool resumed) override;
    void cancel(const std::string& task_id) override;

    /// Looks after the runs and writes their progress; once a second.
    void tick();

    std::vector<RunningTask> running();

private:
    void ended(const std::string& task_id, RunOutcome outcome, const std::string& why);
    RunGoal goal(const TDataBackupConfig& task);
    RunParts parts(const TDataBackupConfig& task, const Destination& destination);

    event_base* loop_;
    LoopClock clock_;
    standalone::Database& memory_;
    ProgressStore progress_;
    standalone::ChannelStore channels_;
    RunQueue* queue_ = nullptr;
    std::map<std::string, std::unique_ptr<BackupRun>> runs_;
};

}  // namespace services
