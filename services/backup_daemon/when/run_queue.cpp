// Which tasks wait and which run: has what notices, schedules and runs tell take its course.
#include "services/backup_daemon/when/run_queue.h"

#include <algorithm>
#include <cstdlib>

#include "services/backup_daemon/tell/run_events.h"

namespace services {
namespace {

using standalone::QueueEnd;
using standalone::RunCause;

// Why runs end early, for people.
constexpr char STOPPED_BY_HAND[] = "stopped by hand";
constexpr char STOPPED[] = "stopped";  // by hand, or to make way for another task
constexpr char STARTED_ANEW[] = "started anew by hand";
constexpr char TASK_IS_GONE[] = "its task was deleted";
constexpr char LIFE_ENDED[] = "the backup daemon ended in the middle of the run";

int status_of(RunOutcome outcome) {
    switch (outcome) {
        case RunOutcome::success:
            return TASK_SUCCESS;
        case RunOutcome::failed:
            return TASK_FAILED;
        case RunOutcome::cancelled:
        case RunOutcome::interrupted:
            break;
    }
    return TASK_CANCEL;
}

Input input_of(RunOutcome outcome) {
    return outcome == RunOutcome::interrupted ? Input::cut_off : Input::ended;
}

/// How the last run of a task at rest has ended; nothing of one that is not.
std::optional<RunOutcome> outcome_of(int status) {
    switch (status) {
        case TASK_SUCCESS:
            return RunOutcome::success;
        case TASK_FAILED:
            return RunOutcome::failed;
        case TASK_CANCEL:
            return RunOutcome::cancelled;
        default:
            return {};
    }
}

}  // namespace

RunQueue::RunQueue(standalone::TaskStore& store, SecuredHistory& history, TaskRunner& runner,
                   std::function<int()> limit, std::function<long long()> now)
    : store_(store),
      history_(history),
      runner_(runner),
      limit_(std::move(limit)),
      now_(std::move(now)) {}

void RunQueue::take_over() {
    std::set<std::string> places;
    for (const auto& place : store_.queue()) places.insert(place.task_id);
    close_left_open(places);
    std::vector<Happening> happenings;
    // From the last to the first, as each one that was running comes to stand in front.
    const auto tasks = store_.list();
    for (auto task = tasks.rbegin(); task != tasks.rend(); ++task) {
        set_stage(task->taskID, stored_stage(task->status, places.contains(task->taskID)));
        happenings.push_back({task->taskID, Input::take_over, true, RunCause::resumed});
    }
    take(happenings);
}

void RunQueue::close_left_open(const std::set<std::string>& places) {
    for (const OpenRun& run : history_.open_runs())
        history_.close(run.task_id, end_in_last_life(run, places.contains(run.task_id)));
}

/// A run's end is stored with its task before its row is closed, so the task tells what the row
/// does not. Whatever is not stored as a success was none.
RunEnd RunQueue::end_in_last_life(const OpenRun& run, bool has_place) {
    const long long seen = std::max(run.started, run.seen);
    const auto task = store_.find(run.task_id);
    if (!task) return {RunOutcome::cancelled, TASK_IS_GONE, seen};
    const long long ended = std::strtoll(task->endTime.c_str(), nullptr, 10);
    const auto outcome = outcome_of(task->status);
    if (outcome && ended >= run.started) return {*outcome, "", ended};
    if (stored_stage(task->status, has_place) == Stage::stopping)
        return {RunOutcome::cancelled, STOPPED, seen};
    return {RunOutcome::interrupted, LIFE_ENDED, seen};
}

void RunQueue::reload() {
    std::vector<Happening> happenings;
    for (const auto& [task_id, stage] : stages_)
        if (!store_.find(task_id))
            happenings.push_back({.task_id = task_id, .input = Input::remove, .why = TASK_IS_GONE});
    take(happenings);
}

bool RunQueue::start(const StartOrder& order) {
    if (!store_.find(order.task_id)) return false;
    if (order.stop_running && !order.parallel) {
        auto happenings = make_way_for(order.task_id, "made way for task " + order.task_id);
        happenings.push_back(
            {.task_id = order.task_id, .input = Input::start_first, .why = STARTED_ANEW});
        take(happenings);
    } else {
        take({{order.task_id, Input::start, order.parallel}});
    }
    return true;
}

void RunQueue::start_by_schedule(const std::vector<DueTask>& due) {
    std::vector<Happening> happenings;
    happenings.reserve(due.size());
    for (const auto& [task_id, cause] : due)
        happenings.push_back({task_id, Input::due, true, cause});
    take(happenings);
}

void RunQueue::stop(const std::string& task_id) {
    take({{.task_id = task_id, .input = Input::stop, .why = STOPPED_BY_HAND}});
}

void RunQueue::stop_running() {
    take(make_way_for("", STOPPED_BY_HAND));
}

void RunQueue::remove(const std::string& task_id) {
    take({{.task_id = task_id, .input = Input::remove, .why = TASK_IS_GONE}});
}

std::vector<std::string> RunQueue::waiting() {
    std::vector<std::string> identifiers;
    if (stages_.empty()) return identifiers;
    for (auto& place : store_.queue()) identifiers.push_back(std::move(place.task_id));
    return identifiers;
}

std::vector<RunQueue::Happening> RunQueue::make_way_for(const std::string& task_id,
                                                        const std::string& why) const {
    std::vector<Happening> happenings;
    for (const auto& [other, stage] : stages_)
        if (other != task_id)
            happenings.push_back({.task_id = other, .input = Input::make_way, .why = why});
    return happenings;
}

void RunQueue::take(const std::vector<Happening>& happenings) {
    take_ends();
    apply(happenings);
    dispatch();
}

/// An end that the store refuses is taken with whatever happens next: nobody tells it again. A run
/// that is taken up again may go beside others, as it did.
void RunQueue::take_ends() {
    std::vector<Happening> happenings;
    for (const auto& [task_id, end] : ends_)
        happenings.push_back({task_id, input_of(end.outcome), true, RunCause::resumed});
    apply(happenings);
    for (const auto& [task_id, end] : ends_) row_ends_[task_id] = row_end_of(task_id, end);
    ends_.clear();
}

/// Of a run that was told to end, that is why it has not gone on, whatever kept it from storing.
RunEnd RunQueue::row_end_of(const std::string& task_id, const RunEnd& end) {
    const auto told = whys_.extract(task_id);
    const bool early =
        end.outcome == RunOutcome::cancelled || end.outcome == RunOutcome::interrupted;
    if (told.empty() || !early) return end;
    return {RunOutcome::cancelled, told.mapped(), end.ended};
}

/// In one transaction, so that a daemon killed at any point has taken all of it or nothing. What is
/// done after that is done by the next life.
void RunQueue::apply(const std::vector<Happening>& happenings) {
    std::vector<Change> changes;
    for (const auto& happening : happenings)
        if (const auto& step = step_of(happening)) changes.push_back({happening, *step});
    if (changes.empty()) return;
    auto transaction = store_.transaction();
    for (Change& change : changes) store(change);
    transaction.commit();
    for (const Change& change : changes) set_stage(change.happening.task_id, change.step.next);
    for (const Change& change : changes) act(change);
}

/// @return whether all of them are closed, and those of runs that never began are gone
bool RunQueue::close_rows() {
    while (!row_ends_.empty()) {
        const auto first = row_ends_.begin();
        if (!write_row("the end of task " + first->first + " is not in the history yet: ",
                       [&] { history_.close(first->first, first->second); }))
            return false;
        row_ends_.erase(first);
    }
    while (!unbegun_.empty()) {
        const auto first = unbegun_.begin();
        if (!write_row("a run that has not begun is in the history for now: ",
                       [&] { history_.withdraw(*first); }))
            return false;
        unbegun_.erase(first);
    }
    return true;
}

/// What can never be written is given up: runs are to begin.
/// @return whether it is done with
bool RunQueue::write_row(const std::string& complaint, const std::function<void()>& write) {
    try {
        write();
    } catch (const standalone::DatabaseError& error) {
        complaints_.print(complaint + error.what());
        return !error.may_pass();
    }
    return true;
}

/// A run that may go beside others passes one that has to wait until nothing runs. What cannot be
/// begun now is looked at again: whoever has asked for something else has got it. This comes with
/// everything that happens to a task, and thousands may wait: while as many run as may, it reads
/// none of them. Where all tasks are at rest, nothing is read.
void RunQueue::dispatch() {
    if (!close_rows() || stages_.empty() || !runner_.can_begin()) return;
    try {
        const int limit = std::max(limit_(), 1);
        int runs = count_runs();
        if (runs >= limit) return;
        for (const auto& place : store_.queue()) {
            if (runs != 0 && !place.parallel) continue;
            let_begin(place);
            runs = count_runs();
            if (runs >= limit) return;
        }
    } catch (const standalone::DatabaseError& error) {
        complaints_.print(std::string("no task can be begun: ") + error.what());
    }
}

/// The row comes before the state that is its run's, and goes with it. Not in the transaction that
/// stores the state: others wait for the one database while this waits for the other's disk.
void RunQueue::let_begin(const standalone::QueuePlace& place) {
    const Happening begin{place.task_id, Input::begin, place.parallel, place.cause};
    open_row(begin);
    try {
        apply({begin});
    } catch (const standalone::DatabaseError&) {
        unbegun_.insert(place.task_id);
        close_rows();
        throw;
    }
}

/// A task that restarts has a place, too, and begins when its run has ended.
void RunQueue::open_row(const Happening& happening) {
    const auto& step = step_of(happening);
    const auto task = store_.find(happening.task_id);
    if (!step || !task) return;
    const bool resumed = step->act == Act::resume_run;
    history_.open(happening.task_id, task->taskName, resumed ? RunCause::resumed : happening.cause,
                  now_());
}

int RunQueue::count_runs() const {
    const auto runs = std::count_if(stages_.begin(), stages_.end(),
                                    [](const auto& task) { return has_run(task.second); });
    return static_cast<int>(runs);
}

const std::optional<Step>& RunQueue::step_of(const Happening& happening) const {
    const auto found = stages_.find(happening.task_id);
    const Stage stage = found == stages_.end() ? Stage::at_rest : found->second;
    return services::step_of(stage, happening.input);
}

void RunQueue::store(Change& change) {
    const std::string& task_id = change.happening.task_id;
    const auto& [next, stored, act] = change.step;
    if (stored.status != Stored::UNCHANGED) store_.set_state(task_id, state_of(task_id, stored));
    if (act != Act::nothing && act != Act::cancel_run) change.task = store_.find(task_id);
    store_place(change.happening, stored.place);
}

void RunQueue::store_place(const Happening& happening, Place place) {
    const std::string& task_id = happening.task_id;
    switch (place) {
        case Place::same:
            return;
        case Place::front:
            return store_.enqueue(QueueEnd::front, {task_id, happening.parallel, happening.cause});
        case Place::back:
            return store_.enqueue(QueueEnd::back, {task_id, happening.parallel, happening.cause});
        case Place::none:
            return store_.dequeue(task_id);
        case Place::deleted:
            return store_.remove(task_id);
    }
}

standalone::TaskState RunQueue::state_of(const std::string& task_id, const Stored& stored) const {
    standalone::TaskState state;
    const bool by_outcome = stored.status == Stored::AS_THE_RUN_ENDED;
    state.status = by_outcome ? status_of(ends_.at(task_id).outcome) : stored.status;
    if (stored.stamp == Stamp::start) state.started = now_();
    if (stored.stamp == Stamp::end) state.ended = end_time(task_id);
    return state;
}

/// A run may have ended long before the store takes that.
long long RunQueue::end_time(const std::string& task_id) const {
    const auto end = ends_.find(task_id);
    return end == ends_.end() ? now_() : end->second.ended;
}

void RunQueue::set_stage(const std::string& task_id, Stage stage) {
    if (stage == Stage::at_rest)
        stages_.erase(task_id);
    else
        stages_[task_id] = stage;
}

/// What was to be done is stored already, so nothing of it may be left open. A task that somebody
/// has deleted meanwhile has no run to begin, and that run's end is what there is to take.
void RunQueue::act(const Change& change) {
    const std::string& task_id = change.happening.task_id;
    switch (change.step.act) {
        case Act::nothing:
            return;
        case Act::begin_run:
        case Act::resume_run:
            if (change.task) return begin(*change.task, change.step.act == Act::resume_run);
            return end(task_id, RunOutcome::failed, TASK_IS_GONE);
        case Act::cancel_run:
            whys_.try_emplace(task_id, change.happening.why);
            return cancel(task_id);
        case Act::cancel_and_clean_up:
            whys_.try_emplace(task_id, change.happening.why);
            cancel(task_id);
            return clean_up(change);
        case Act::clean_up:
            return clean_up(change);
    }
}

/// A run that cannot begin has failed: otherwise it would be taken for one that goes on for ever.
void RunQueue::begin(const TDataBackupConfig& task, bool resumed) {
    const std::string task_id = task.taskID;
    TaskRunner::Listener listener;
    listener.connected = [this, task] {
        history_.secure(task, now_());
        take({{task.taskID, Input::connected}});
    };
    listener.ended = [this, task_id](RunOutcome outcome) { ended(task_id, outcome); };
    try {
        runner_.begin(task, resumed, std::move(listener));
    } catch (const std::exception& error) {
        write_run_event(RUN_FAILED, task.taskName, error.what());
        end(task_id, RunOutcome::failed, error.what());
    }
}

void RunQueue::cancel(const std::string& task_id) {
    try {
        runner_.cancel(task_id);
    } catch (const std::exception& error) {
        complaints_.print("the run of task " + task_id + " cannot be cancelled: " + error.what());
    }
}

/// Of a task that somebody else has deleted nobody knows the login any more.
void RunQueue::clean_up(const Change& change) {
    if (change.task) runner_.clean_up(*change.task);
}

void RunQueue::end(const std::string& task_id, RunOutcome outcome, const std::string& why) {
    ends_[task_id] = {outcome, why, now_()};
}

/// The run has nobody else to tell. What cannot be stored now is, by the next look.
void RunQueue::ended(const std::string& task_id, RunOutcome outcome) {
    end(task_id, outcome);
    try {
        take({});
    } catch (const standalone::DatabaseError& error) {
        complaints_.print("the end of task " + task_id + " is not stored yet: " + error.what());
    }
}

}  // namespace services
