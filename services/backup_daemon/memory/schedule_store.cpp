// When each task's schedule comes due next, in the daemon's own database.
#include "services/backup_daemon/memory/schedule_store.h"

namespace services {

ScheduleStore::NextRuns ScheduleStore::all() {
    standalone::Statement row = database_.prepare("SELECT taskID, rule, due FROM next_run");
    NextRuns all;
    while (row.step()) all[row.text(0)] = {row.text(1), row.integer(2)};
    return all;
}

void ScheduleStore::write(const Changes& changes) {
    if (changes.empty()) return;
    standalone::Transaction transaction(database_);
    standalone::Statement insert =
        database_.prepare("INSERT OR REPLACE INTO next_run (taskID, rule, due) VALUES (?, ?, ?)");
    standalone::Statement remove = database_.prepare("DELETE FROM next_run WHERE taskID = ?");
    for (const auto& [task_id, next] : changes) {
        standalone::Statement& statement = next ? insert : remove;
        statement.bind(1, std::stoll(task_id));
        if (next) statement.bind(2, next->rule).bind(3, next->due);
        statement.step();
        statement.reset();
    }
    transaction.commit();
}

}  // namespace services
