// Which tasks wait and which run: has what notices, schedules and runs tell take its course.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/memory/secured_history.h"
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

/// A task whose schedule has come due.
struct DueTask {
    std::string task_id;
    standalone::RunCause cause;  ///< schedule or missed
};

/// The queue of started tasks and the states of all, by the table in transitions.h. The store holds
/// both, so they outlive the daemon: whatever an input changes is stored first, all or nothing, and
/// done then; in the end begins what may begin. This is the only writer of a task's status, start
/// and end time.
///
/// It also keeps the history of runs: a row is open before its run is stored as begun, on disk
/// before the run hears that it is connected, and closed when its end is stored. A row that cannot
/// be opened keeps the task waiting; one that cannot be closed, or taken back as its run did not
/// begin, is with the next call, and no run begins before.
///
/// Any call may throw standalone::DatabaseError: what was asked has not happened then. What has
/// been stored is done without the store: a run that cannot begin has failed, one that cannot be
/// cancelled goes on to its end. An end that cannot be stored is kept, and stored before anything
/// else is; a task that cannot be begun waits. Both come with the next call.
class RunQueue {
public:
    /// Store, history and runner outlive the queue; no run tells anything after its end.
    /// @param limit how many tasks may run side by side, asked afresh each time
    /// @param now   seconds since the epoch
    RunQueue(standalone::TaskStore& store, SecuredHistory& history, TaskRunner& runner,
             std::function<int()> limit, std::function<long long()> now);
    RunQueue(const RunQueue&) = delete;
    RunQueue& operator=(const RunQueue&) = delete;

    /// Takes over from the daemon's last life: tasks that were running come first and go on. Rows
    /// of the history that it left open are closed, as its tasks' stored states tell. Once, before
    /// all else.
    void take_over();

    /// Drops what concerns tasks that are no longer stored.
    void reload();

    /// Starts a task: at the front when it is to take the place of what runs, otherwise at the
    /// end. A disabled task is taken too: enabling is about runs by schedule, a start is an order.
    /// A task that runs goes on, or begins anew when what runs is to be stopped.
    /// @return whether there is such a task
    bool start(const StartOrder& order);

    /// Schedules of tasks have come due: all of them get their places, in this order, or none. A
    /// task that waits or runs already stays as it is.
    void start_by_schedule(const std::vector<DueTask>& due);

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
        standalone::RunCause cause = standalone::RunCause::hand;  ///< of a start, and of begin
        std::string why{};  ///< the run is told to end, in words
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
    void let_begin(const standalone::QueuePlace& place);
    bool close_rows();
    bool write_row(const std::string& complaint, const std::function<void()>& write);
    void close_left_open(const std::set<std::string>& places);
    RunEnd end_in_last_life(const OpenRun& run, bool has_place);
    int count_runs() const;
    std::vector<Happening> make_way_for(const std::string& task_id, const std::string& why) const;
    RunEnd row_end_of(const std::string& task_id, const RunEnd& end);

    const std::optional<Step>& step_of(const Happening& happening) const;
    void store(Change& change);
    void store_place(const Happening& happening, Place place);
    void open_row(const Happening& happening);
    standalone::TaskState state_of(const std::string& task_id, const Stored& stored) const;
    long long end_time(const std::string& task_id) const;
    void set_stage(const std::string& task_id, Stage stage);
    void act(const Change& change);
    void begin(const TDataBackupConfig& task, bool resumed);
    void cancel(const std::string& task_id);
    void clean_up(const Change& change);
    void ended(const std::string& task_id, RunOutcome outcome);

    void end(const std::string& task_id, RunOutcome outcome, const std::string& why = "");

    standalone::TaskStore& store_;
    SecuredHistory& history_;
    TaskRunner& runner_;
    std::function<int()> limit_;
    std::function<long long()> now_;
    std::map<std::string, Stage> stages_;      ///< of the tasks that are not at rest
    std::map<std::string, RunEnd> ends_;       ///< of runs, until they are stored
    std::map<std::string, RunEnd> row_ends_;   ///< of rows, until they are closed
    std::set<std::string> unbegun_;            ///< tasks with a row of a run that did not begin
    std::map<std::string, std::string> whys_;  ///< runs are told to end, until they have
    Complaints complaints_;
};

}  // namespace services
