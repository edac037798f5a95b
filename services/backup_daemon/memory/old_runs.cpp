// Lets go of runs that the history need not have any more, a few at a time.
#include "services/backup_daemon/memory/old_runs.h"

#include <string>
#include <utility>
#include <vector>

#include "services/backup_daemon/memory/task_numbers.h"

namespace services {
namespace {

using standalone::Database;
using standalone::Statement;

constexpr long long DAY = 86400;

using Runs = std::vector<std::pair<long long, long long>>;  // task and number

// As for copies (run/date_trust.h): by a clock that is right no two runs are further apart.
constexpr long long LONGEST_STEP = 31 * DAY;

/// A clock that has jumped makes all runs look old. It is believed when there are runs before its
/// last month, too, and no longer step than that from the newest of them to the next one.
bool is_believed(Database& memory, long long now) {
    Statement row = memory.prepare(
        "SELECT (SELECT min(started) FROM run WHERE started BETWEEN ?1 AND ?2) - "
        "(SELECT max(started) FROM run WHERE started < ?1)");
    row.bind(1, now - LONGEST_STEP).bind(2, now).step();
    return !row.is_null(0) && row.integer(0) <= LONGEST_STEP;
}

// Up to which number a task's runs need not be kept is looked for once a task, not once a run, and
// only where the task's first run is old. One of a clock that was ahead is not young.
constexpr char SELECT_OLD_RUNS[] =
    "SELECT run.taskID, run.number "
    "FROM task_health AS task CROSS JOIN run ON run.taskID = task.taskID "
    "WHERE (SELECT started FROM run WHERE taskID = task.taskID ORDER BY number LIMIT 1) "
    "NOT BETWEEN ?1 AND ?2 AND run.number <= "
    "CASE WHEN task.taskID IN (SELECT value FROM json_each(?3)) "
    "THEN (SELECT number FROM run WHERE taskID = task.taskID "
    "ORDER BY number DESC LIMIT 1 OFFSET ?4) ELSE task.last_number END "
    "AND run.started < ?1 AND run.outcome IS NOT NULL LIMIT ?5";

Runs old_runs(Database& memory, const std::string& kept, long long now) {
    Statement row = memory.prepare(SELECT_OLD_RUNS);
    row.bind(1, now - KEPT_DAYS * DAY).bind(2, now).bind(3, kept);
    row.bind(4, KEPT_RUNS).bind(5, PRUNED_AT_ONCE);
    Runs runs;
    while (row.step()) runs.emplace_back(row.integer(0), row.integer(1));
    return runs;
}

void remove_runs(Database& memory, const Runs& runs) {
    standalone::Transaction transaction(memory);
    for (const char* sql : {"DELETE FROM run WHERE taskID = ? AND number = ?",
                            "DELETE FROM run_failure WHERE taskID = ? AND number = ?"})
        for (const auto& [task, number] : runs)
            memory.prepare(sql).bind(1, task).bind(2, number).step();
    transaction.commit();
}

void forget_deleted_tasks(Database& memory, const std::string& kept) {
    const std::string rows =
        " FROM task_health WHERE taskID NOT IN (SELECT value FROM json_each(?)) "
        "AND NOT EXISTS (SELECT 1 FROM run WHERE run.taskID = task_health.taskID)";
    if (memory.prepare("SELECT 1" + rows).bind(1, kept).step())
        memory.prepare("DELETE" + rows).bind(1, kept).step();
}

}  // namespace

int prune_runs(Database& memory, const std::list<TDataBackupConfig>& tasks, long long now) {
    const std::string kept = task_numbers(tasks);
    Runs runs;
    if (is_believed(memory, now)) runs = old_runs(memory, kept, now);
    if (!runs.empty()) remove_runs(memory, runs);
    forget_deleted_tasks(memory, kept);
    return static_cast<int>(runs.size());
}

}  // namespace services
