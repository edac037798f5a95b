// Applies notices to the stored queue.
#include "services/backup_daemon/run_queue.h"

#include <algorithm>

namespace services {

void RunQueue::take_over() {
    reload();
    // A daemon killed half-way through a stop leaves a task that says it waits but has no place.
    const auto queue = waiting();
    for (const TDataBackupConfig& task : store_.list())
        if (task.status == TASK_WAIT &&
            std::find(queue.begin(), queue.end(), task.taskID) == queue.end())
            store_.set_status(task.taskID, TASK_CANCEL);
}

void RunQueue::reload() {
    for (const std::string& task_id : store_.waiting())
        if (!store_.find(task_id)) store_.dequeue(task_id);
}

bool RunQueue::start(const Notice& notice) {
    const bool at_front = notice.stop_running && !notice.parallel;
    return store_.enqueue(notice.task_id, at_front);
}

void RunQueue::stop(const std::string& task_id) {
    if (store_.dequeue(task_id)) store_.set_status(task_id, TASK_CANCEL);
}

void RunQueue::remove(const std::string& task_id) {
    store_.remove(task_id);
}

std::vector<std::string> RunQueue::waiting() {
    return store_.waiting();
}

}  // namespace services
