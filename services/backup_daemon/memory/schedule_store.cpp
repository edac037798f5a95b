// When each task's schedule comes due next, in the daemon's own database.
#include "services/backup_daemon/memory/schedule_store.h"

namespace services {

std::optional<standalone::NextRun> ScheduleStore::find(const std::string& task_id) {
    standalone::Statement row =
        database_.prepare("SELECT rule, due FROM next_run WHERE taskID = ?");
    if (!row.bind(1, std::stoll(task_id)).step()) return {};
    return standalone::NextRun{row.text(0), row.integer(1)};
}

void ScheduleStore::set(const std::string& task_id, const standalone::NextRun& next) {
    standalone::Statement insert =
        database_.prepare("INSERT OR REPLACE INTO next_run (taskID, rule, due) VALUES (?, ?, ?)");
    insert.bind(1, std::stoll(task_id)).bind(2, next.rule).bind(3, next.due).step();
}

void ScheduleStore::clear(const std::string& task_id) {
    database_.prepare("DELETE FROM next_run WHERE taskID = ?").bind(1, std::stoll(task_id)).step();
}

}  // namespace services
