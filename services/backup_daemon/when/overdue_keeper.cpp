// Keeps in the store from when on each task is overdue, so that whoever reads it needs no daemon.
#include "services/backup_daemon/when/overdue_keeper.h"

#include <cstdlib>

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
    for (const TDataBackupConfig& task : tasks_.list()) {
        const auto known = health_.find(task.taskID);
        const auto health = reckon_overdue(task, known ? *known : health_of_older_version(task),
                                           next_runs_.find(task.taskID), now, percent);
        if (!known || health != *known) health_.set(task.taskID, health);
    }
}

}  // namespace services
