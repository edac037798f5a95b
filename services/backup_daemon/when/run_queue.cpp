// Which tasks wait and which run: what notices, schedules and the ends of runs do to them.
#include "services/backup_daemon/when/run_queue.h"

#include <algorithm>

namespace services {

RunQueue::RunQueue(standalone::TaskStore& store, TaskRunner& runner, std::function<int()> limit,
                   std::function<long long()> now)
    : store_(store), runner_(runner), limit_(std::move(limit)), now_(std::move(now)) {}

void RunQueue::take_over() {
    reload();
    const auto tasks = store_.list();
    for (auto task = tasks.rbegin(); task != tasks.rend(); ++task) {
        const bool ran = task->status == TASK_RUNNING || task->status == TASK_PREPARE_START;
        if (ran) {
            // In front, and side by side as far as the limit allows.
            resumed_[task->taskID] = true;
            store_.enqueue(task->taskID, true, true);
        }
        // A daemon killed half-way through a stop leaves a task that waits but has no place.
        const bool stopped = task->status == TASK_PREPARE_STOP || task->status == TASK_WAIT;
        if (stopped && !waits(task->taskID)) set(task->taskID, TASK_CANCEL, "endTime");
    }
}

void RunQueue::reload() {
    for (const std::string& task_id : waiting())
        if (!store_.find(task_id)) store_.dequeue(task_id);
    for (const auto& [task_id, stopping] : std::map(running_))
        if (!store_.find(task_id)) cancel(task_id);
}

bool RunQueue::start(const Notice& notice) {
    const std::string& task_id = notice.task_id;
    if (!store_.find(task_id)) return false;
    const bool make_room = notice.stop_running && !notice.parallel;
    if (is_running(task_id) && !make_room && !running_[task_id]) return true;
    if (make_room) stop("");
    return store_.enqueue(task_id, make_room, notice.parallel);
}

void RunQueue::start_by_schedule(const std::string& task_id) {
    if (is_running(task_id) || waits(task_id)) return;
    store_.enqueue(task_id, false, true);
}

void RunQueue::stop(const std::string& task_id) {
    if (task_id.empty()) {
        for (const auto& [running, stopping] : std::map(running_)) cancel(running);
        return;
    }
    const bool waited = store_.dequeue(task_id);
    if (is_running(task_id))
        cancel(task_id);
    else if (waited)
        set(task_id, TASK_CANCEL);
}

void RunQueue::remove(const std::string& task_id) {
    if (is_running(task_id)) cancel(task_id);
    store_.remove(task_id);
}

void RunQueue::dispatch() {
    for (const auto& place : store_.queue())
        if (may_run(place)) begin(place.task_id);
}

void RunQueue::connected(const std::string& task_id) {
    if (is_running(task_id) && !running_[task_id]) set(task_id, TASK_RUNNING);
}

void RunQueue::ended(const std::string& task_id, int status) {
    running_.erase(task_id);
    set(task_id, status, "endTime");
    // A start came while the run was ending.
    if (waits(task_id)) set(task_id, TASK_WAIT);
}

std::vector<std::string> RunQueue::waiting() {
    return store_.waiting();
}

bool RunQueue::waits(const std::string& task_id) {
    const auto places = waiting();
    return std::find(places.begin(), places.end(), task_id) != places.end();
}

/// A run that may go beside others passes one that has to wait until nothing runs.
bool RunQueue::may_run(const standalone::QueuePlace& place) const {
    if (is_running(place.task_id)) return false;
    return running_.empty() ||
           (place.parallel && running_.size() < static_cast<std::size_t>(limit_()));
}

void RunQueue::begin(const std::string& task_id) {
    const bool resumed = resumed_.erase(task_id) > 0;
    // First the status, then the place: a daemon killed in between takes the run up again.
    set(task_id, TASK_PREPARE_START, resumed ? nullptr : "startTime");
    store_.dequeue(task_id);
    const auto task = store_.find(task_id);
    if (!task) return;
    running_[task_id] = false;
    runner_.begin(*task, resumed);
}

void RunQueue::cancel(const std::string& task_id) {
    if (std::exchange(running_[task_id], true)) return;
    set(task_id, TASK_PREPARE_STOP);
    runner_.cancel(task_id);
}

/// No such task any more: nothing happens.
void RunQueue::set(const std::string& task_id, int status, const char* time_field) {
    std::vector<std::pair<std::string, std::string>> values{{"status", std::to_string(status)}};
    if (time_field) values.emplace_back(time_field, std::to_string(now_()));
    store_.set_fields(task_id, values);
}

}  // namespace services
