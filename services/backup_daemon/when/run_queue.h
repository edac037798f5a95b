// Which tasks wait and which run: has what notices, schedules and runs tell take its course.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/run/task_runner.h"
#include "services/backup_daemon/when/transitions.h"
#include "services/complaints.h"

namespace services {

/// An order to start a task.
struct StartOrder {
    std::string task_id;
    bool stop_running = false;  ///< in the place of what runs; not of weight with `parallel`
    bool parallel = false;      ///< beside what runs
};

/// The queue of started tasks and the states of all, by the table in transitions.h. The store holds
/// both, so they outlive the daemon: whatever an input changes is stored first, all or nothing, and
/// done then; in the end begins what may begin. This is the only writer of a task's status, start
/// and end time.
///
/// Any call may throw standalone::DatabaseError: what was asked has not happened then. What has
/// been stored is done without the store: a run that cannot begin has failed, one that cannot be
/// cancelled goes on to its end. An end that cannot be stored is kept, and stored before anything
/// else is; a task that cannot be begun waits. Both come with the next call.
class RunQueue {
public:
    /// The store and the runner outlive the queue; no run tells anything after its end.
    /// @param limit how many tasks may run side by side, asked afresh each time
    /// @param now   seconds since the epoch
    RunQueue(standalone::TaskStore& store, TaskRunner& runner, std::function<int()> limit,
             std::function<long long()> now);
    RunQueue(const RunQueue&) = delete;
    RunQueue& operator=(const RunQueue&) = delete;

    /// Takes over from the daemon's last life: tasks that were running come first and go on. Once,
    /// before all else.
    void take_over();

    /// Drops what concerns tasks that are no longer stored.
    void reload();

    /// Starts a task: at the front when it is to take the place of what runs, otherwise at the
    /// end. A disabled task is taken too: enabling is about runs by schedule, a start is an order.
    /// A task that runs goes on, or begins anew when what runs is to be stopped.
    /// @return whether there is such a task
    bool start(const StartOrder& order);

    /// A task's schedule has come due. A task that waits or runs already stays as it is.
    void start_by_schedule(const std::string& task_id);

    /// Stops a task, running or waiting; neither: it stays as it is.
    void stop(const std::string& task_id);

    /// Stops all tasks that run.
    void stop_running();

    /// Deletes a task with its place, and has its run end. No such task: nothing happens.
    void remove(const std::string& task_id);

    /// Begins what a limit raised meanwhile lets begin; once a second or so.
    void look() { take({}); }

    /// Identifiers of the waiting tasks, next one first.
    std::vector<std::string> waiting();

private:
    /// What has happened to one task.
    struct Happening {
        std::string task_id;
        Input input;
        bool parallel = false;  ///< of a start: the run may go beside others
    };

    /// A step that a happening takes.
    struct Change {
        Happening happening;
        Step step;
        std::optional<TDataBackupConfig> task{};  ///< as it is stored, or was last
    };

    void take(const std::vector<Happening>& happenings);
    void take_ends();
    void apply(const std::vector<Happening>& happenings);
    void dispatch();
    bool has_room_for(const standalone::QueuePlace& place) const;
    std::vector<Happening> make_way_for(const std::string& task_id) const;

    const std::optional<Step>& step_of(const Happening& happening) const;
    void store(Change& change);
    void store_place(const Happening& happening, Place place);
    standalone::TaskState state_of(const std::string& task_id, const Stored& stored) const;
    void set_stage(const std::string& task_id, Stage stage);
    void act(const Change& change);
    void begin(const TDataBackupConfig& task, bool resumed);
    void cancel(const std::string& task_id);
    void clean_up(const Change& change);
    void ended(const std::string& task_id, RunOutcome outcome);

    standalone::TaskStore& store_;
    TaskRunner& runner_;
    std::function<int()> limit_;
    std::function<long long()> now_;
    std::map<std::string, Stage> stages_;     ///< of the tasks that are not at rest
    std::map<std::string, RunOutcome> ends_;  ///< of runs, until they are stored
    Complaints complaints_;
};

}  // namespace services
