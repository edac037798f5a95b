// Runs tasks: begins runs, writes their progress and events, hands on their ends.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "platform/standalone/store/channel_store.h"
#include "services/backup_daemon/memory/copy_store.h"
#include "services/backup_daemon/memory/destination_store.h"
#include "services/backup_daemon/memory/progress_store.h"
#include "services/backup_daemon/memory/run_history.h"
#include "services/backup_daemon/run/backup_run.h"
#include "services/backup_daemon/run/task_runner.h"
#include "services/backup_daemon/tell/event_outbox.h"
#include "services/complaints.h"

namespace services {

/// A run as a query shows it.
struct RunningTask {
    std::string task_id;
    double percent = 0;  ///< of the bytes
    double rate = 0;     ///< bytes per second
    std::size_t lanes = 0;
};

class BackupRunner : public TaskRunner {
public:
    /// All of it outlives the runner. Each database connection is this runner's own thread's.
    /// @param config   the configuration database
    /// @param memory   the daemon's own database, with deferred durability
    /// @param identity this recorder's
    BackupRunner(event_base* loop, standalone::Database& config, standalone::Database& memory,
                 std::string identity);

    void begin(const TDataBackupConfig& task, bool resumed, Listener listener) override;
    void cancel(const std::string& task_id) override;

    /// Tries for as long as a run would. What cannot be removed until then, or until the daemon
    /// ends, stays for a later run at the same destination: no login is kept.
    void clean_up(const TDataBackupConfig& task) override;

    /// Not while figures of runs cannot be written: neither could what a new run copies.
    bool can_begin() override { return unwritten_.empty(); }

    /// Has a function called behind the end of each run, when whoever the run told of it is done.
    /// @param look throws nothing
    void look_behind_each_run(std::function<void()> look) { when_ended_ = std::move(look); }

    /// Looks after the runs, writes their progress and whatever could not be written before; once a
    /// second.
    void tick();

    std::vector<RunningTask> running();

    /// How often this runner's runs of a task have lost the connection and tried again.
    long long retries(const std::string& task_id) const;

private:
    struct Entry {
        std::unique_ptr<BackupRun> run;
        Listener listener;
        bool deleted = false;  ///< its task is: what it leaves on the share is to go
    };

    /// How far a run has come, for whoever looks at it now, and for the history.
    struct Unwritten {
        RunFigures figures;
        RunAccount account;
    };

    static Unwritten unwritten(const BackupRun& run) { return {run.figures(), run.account()}; }
    void ended(const std::string& task_id, RunOutcome outcome, const std::string& why);
    void begin_clean_up(const TDataBackupConfig& task);
    std::unique_ptr<BackupRun> clean_up_run(const TDataBackupConfig& task);
    void cleaned_up(const std::string& task_id, const std::string& why);
    void write_figures();
    RunGoal goal(const TDataBackupConfig& task);
    EarlierPart earlier_part(const TDataBackupConfig& task, const RunParts& parts);
    RunParts parts(const TDataBackupConfig& task, const Destination& destination);

    event_base* loop_;
    LoopClock clock_;
    standalone::Database& memory_;
    const std::string identity_;
    ProgressStore progress_;
    RunHistory history_;
    standalone::ChannelStore channels_;
    std::map<std::string, Entry> runs_;
    std::map<std::string, std::unique_ptr<BackupRun>> clean_ups_;  ///< by the deleted task
    std::map<std::string, Unwritten> unwritten_;                   ///< the newest of each task
    std::map<std::string, long long> retries_;  ///< of runs that are over, by task
    EventOutbox events_;
    std::function<void()> when_ended_ = [] {};
    Complaints complaints_;
};

}  // namespace services
