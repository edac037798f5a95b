// Keeps in the store from when on each task is overdue, so that whoever reads it needs no daemon.
#include "services/backup_daemon/when/overdue_keeper.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>

#include "services/backup_daemon/when/by_task.h"
#include "services/backup_daemon/when/overdue.h"

namespace services {
namespace {

standalone::TaskHealth health_of_older_version(const TDataBackupConfig& task) {
    standalone::TaskHealth health;
    const long long ended = std::strtoll(task.endTime.c_str(), nullptr, 10);
    if (task.status == TASK_SUCCESS && ended > 0) health.success_time = ended;
    return health;
}

}  // namespace

void OverdueKeeper::look(long long now, int percent) {
    const Seen seen{tasks_.version(), times_.version(), percent};
    if (last_look_.holds(seen, now)) return;
    const auto all_known = health_.all();
    const auto next_runs = next_runs_.all();
    std::map<std::string, standalone::TaskHealth> changes;
    long long until = NEVER;
    for (const TDataBackupConfig& task : tasks_.known()) {
        const auto known = of_task(all_known, task.taskID);
        const auto health = reckon_overdue(task, known.value_or(health_of_older_version(task)),
                                           of_task(next_runs, task.taskID), now, percent);
        until = std::min(until, reckoned_until(task, health, now, percent));
        if (known != health) changes.emplace(task.taskID, health);
    }
    health_.write(changes);
    last_look_.note(seen, now, until);
}

}  // namespace services
