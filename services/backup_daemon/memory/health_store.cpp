// Keeps of each task since when it is, or from when on it will be, overdue.
#include "services/backup_daemon/memory/health_store.h"

#include "platform/standalone/store/run_records.h"

namespace services {
namespace {

void bind_time(standalone::Statement& statement, int parameter, std::optional<long long> time) {
    if (time)
        statement.bind(parameter, *time);
    else
        statement.bind_null(parameter);
}

}  // namespace

std::map<std::string, standalone::TaskHealth> HealthStore::all() {
    return standalone::RunRecords(database_).all_health();
}

void HealthStore::write(const std::map<std::string, standalone::TaskHealth>& changes) {
    if (changes.empty()) return;
    standalone::Transaction transaction(database_);
    standalone::Statement insert = database_.prepare(
        "INSERT INTO task_health (taskID, success_time, overdue_from, late_from, first_due, rule) "
        "VALUES (?1, ?2, ?3, ?4, ?5, ?6) ON CONFLICT (taskID) DO UPDATE SET "
        "success_time = ?2, overdue_from = ?3, late_from = ?4, first_due = ?5, rule = ?6");
    for (const auto& [task_id, health] : changes) {
        insert.bind(1, std::stoll(task_id));
        bind_time(insert, 2, health.success_time);
        bind_time(insert, 3, health.overdue_from);
        bind_time(insert, 4, health.late_from);
        bind_time(insert, 5, health.first_due);
        insert.bind(6, health.rule).step();
        insert.reset();
    }
    transaction.commit();
}

}  // namespace services
