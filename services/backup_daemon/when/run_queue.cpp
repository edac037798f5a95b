// Which tasks wait and which run: has what notices, schedules and runs tell take its course.
#include "services/backup_daemon/when/run_queue.h"

#include <algorithm>
#include <set>

#include "services/backup_daemon/tell/run_events.h"

namespace services {
namespace {

using standalone::QueueEnd;

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

}  // namespace

RunQueue::RunQueue(standalone::TaskStore& store, TaskRunner& runner, std::function<int()> limit,
                   std::function<long long()> now)
    : store_(store), runner_(runner), limit_(std::move(limit)), now_(std::move(now)) {}

void RunQueue::take_over() {
    std::set<std::string> places;
    for (const auto& place : store_.queue()) places.insert(place.task_id);
    std::vector<Happening> happenings;
    // From the last to the first, as each one that was running comes to stand in front.
    const auto tasks = store_.list();
    for (auto task = tasks.rbegin(); task != tasks.rend(); ++task) {
        set_stage(task->taskID, stored_stage(task->status, places.contains(task->taskID)));
        happenings.push_back({task->taskID, Input::take_over, true});
    }
    take(happenings);
}

void RunQueue::reload() {
    std::vector<Happening> happenings;
    for (const auto& [task_id, stage] : stages_)
        if (!store_.find(task_id)) happenings.push_back({task_id, Input::remove});
    take(happenings);
}

bool RunQueue::start(const StartOrder& order) {
    if (!store_.find(order.task_id)) return false;
    if (order.stop_running && !order.parallel) {
        auto happenings = make_way_for(order.task_id);
        happenings.push_back({order.task_id, Input::start_first});
        take(happenings);
    } else {
        take({{order.task_id, Input::start, order.parallel}});
    }
    return true;
}

void RunQueue::start_by_schedule(const std::string& task_id) {
    take({{task_id, Input::due, true}});
}

void RunQueue::stop(const std::string& task_id) {
    take({{task_id, Input::stop}});
}

void RunQueue::stop_running() {
    take(make_way_for(""));
}

void RunQueue::remove(const std::string& task_id) {
    take({{task_id, Input::remove}});
}

std::vector<std::string> RunQueue::waiting() {
    std::vector<std::string> identifiers;
    for (auto& place : store_.queue()) identifiers.push_back(std::move(place.task_id));
    return identifiers;
}

std::vector<RunQueue::Happening> RunQueue::make_way_for(const std::string& task_id) const {
    std::vector<Happening> happenings;
    for (const auto& [other, stage] : stages_)
        if (other != task_id) happenings.push_back({other, Input::make_way});
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
    for (const auto& [task_id, outcome] : ends_)
        happenings.push_back({task_id, input_of(outcome), true});
    apply(happenings);
    ends_.clear();
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

/// A run that may go beside others passes one that has to wait until nothing runs. What cannot be
/// begun now is looked at again: whoever has asked for something else has got it.
void RunQueue::dispatch() {
    if (!runner_.can_begin()) return;
    try {
        for (const auto& place : store_.queue())
            if (has_room_for(place)) apply({{place.task_id, Input::begin}});
    } catch (const standalone::DatabaseError& error) {
        complaints_.print(std::string("no task can be begun: ") + error.what());
    }
}

bool RunQueue::has_room_for(const standalone::QueuePlace& place) const {
    const auto runs = std::count_if(stages_.begin(), stages_.end(),
                                    [](const auto& task) { return has_run(task.second); });
    return runs == 0 || (place.parallel && runs < limit_());
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
            return store_.enqueue(task_id, QueueEnd::front, happening.parallel);
        case Place::back:
            return store_.enqueue(task_id, QueueEnd::back, happening.parallel);
        case Place::none:
            return store_.dequeue(task_id);
        case Place::deleted:
            return store_.remove(task_id);
    }
}

standalone::TaskState RunQueue::state_of(const std::string& task_id, const Stored& stored) const {
    standalone::TaskState state;
    const bool by_outcome = stored.status == Stored::AS_THE_RUN_ENDED;
    state.status = by_outcome ? status_of(ends_.at(task_id)) : stored.status;
    if (stored.stamp == Stamp::start) state.started = now_();
    if (stored.stamp == Stamp::end) state.ended = now_();
    return state;
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
            ends_[task_id] = RunOutcome::failed;
            return;
        case Act::cancel_run:
            return cancel(task_id);
        case Act::cancel_and_clean_up:
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
    listener.connected = [this, task_id] { take({{task_id, Input::connected}}); };
    listener.ended = [this, task_id](RunOutcome outcome) { ended(task_id, outcome); };
    try {
        runner_.begin(task, resumed, std::move(listener));
    } catch (const std::exception& error) {
        write_run_event(RUN_FAILED, task.taskName, error.what());
        ends_[task_id] = RunOutcome::failed;
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

/// The run has nobody else to tell. What cannot be stored now is, by the next look.
void RunQueue::ended(const std::string& task_id, RunOutcome outcome) {
    ends_[task_id] = outcome;
    try {
        take({});
    } catch (const standalone::DatabaseError& error) {
        complaints_.print("the end of task " + task_id + " is not stored yet: " + error.what());
    }
}

}  // namespace services
