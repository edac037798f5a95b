// Which tasks wait and which run: what notices, schedules and the ends of runs do to them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/front/notice.h"

namespace services {

/// Who really runs tasks.
class TaskRunner {
public:
    virtual ~TaskRunner() = default;
    /// Begins a run. Its progress comes back through RunQueue::connected() and ended(), later.
    /// @param resumed the daemon ended in the middle of this run
    virtual void begin(const TDataBackupConfig& task, bool resumed) = 0;
    /// Has a run end as cancelled, later. The run may have ended already.
    virtual void cancel(const std::string& task_id) = 0;
};

/// The queue of started tasks and the states of all. The store holds both, so they outlive the
/// daemon. This is the only writer of a task's status, start and end time. Any call may throw
/// standalone::DatabaseError.
class RunQueue {
public:
    /// @param limit how many tasks may run side by side, asked afresh each time
    /// @param now   seconds since the epoch
    RunQueue(standalone::TaskStore& store, TaskRunner& runner, std::function<int()> limit,
             std::function<long long()> now);

    /// Takes over from the daemon's last life: tasks that were running come first and go on. Once,
    /// before the first notice.
    void take_over();

    /// Drops what concerns tasks that are no longer stored.
    void reload();

    /// Gives a task a place and status "wait": at the front when it is to take the place of what
    /// runs, otherwise at the end. A disabled task is taken too: enabling is about runs by
    /// schedule, a start is an order. A task that runs goes on, or begins anew when what runs is
    /// to be stopped.
    /// @return whether there is such a task
    bool start(const Notice& notice);

    /// A task's schedule has come due. A task that waits or runs already stays as it is.
    void start_by_schedule(const std::string& task_id);

    /// Stops a task, running or waiting; neither: it stays as it is. An empty identifier means all
    /// that run.
    void stop(const std::string& task_id);

    /// Deletes a task with its place, and has its run end. No such task: nothing happens.
    void remove(const std::string& task_id);

    /// Begins what may begin now.
    void dispatch();

    /// A run has connected.
    void connected(const std::string& task_id);

    /// A run has ended with this status of strStatus_Arr.
    void ended(const std::string& task_id, int status);

    /// Identifiers of the waiting tasks, next one first.
    std::vector<std::string> waiting();

    /// Whether a task has a run that has not ended.
    bool is_running(const std::string& task_id) const { return running_.contains(task_id); }

private:
    bool waits(const std::string& task_id);
    bool may_run(const standalone::QueuePlace& place) const;
    void begin(const std::string& task_id);
    void cancel(const std::string& task_id);
    void set(const std::string& task_id, int status, const char* time_field = nullptr);

    standalone::TaskStore& store_;
    TaskRunner& runner_;
    std::function<int()> limit_;
    std::function<long long()> now_;
    std::map<std::string, bool> running_;  ///< whether the run has been told to end
    std::map<std::string, bool> resumed_;  ///< tasks that were running when the daemon ended
};

}  // namespace services
