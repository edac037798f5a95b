// Reads from the databases what monitoring systems are told of the daemon.
#include "services/backup_daemon/tell/metrics_reader.h"

#include <map>

#include "platform/standalone/store/run_records.h"

namespace services {
namespace {

using standalone::RunOutcome;
using standalone::RunRecord;
using standalone::Statement;

/// How a task is, whatever its runs have done since the daemon began.
struct Standing {
    std::optional<long long> success_time;
    std::optional<long long> overdue_from;
    std::optional<RunOutcome> last_outcome;
    std::optional<RunRecord> last_whole;  ///< as far as has_failed() needs it
};

/// Runs before a task's first one are of another task, which had the same number.
constexpr char SELECT_STANDINGS[] =
    "SELECT task.taskID, success_time, overdue_from, "
    "(SELECT outcome FROM run WHERE run.taskID = task.taskID AND number >= first_run "
    "AND outcome IS NOT NULL ORDER BY number DESC LIMIT 1), whole.outcome, whole.started "
    "FROM task_health AS task LEFT JOIN run AS whole ON whole.taskID = task.taskID "
    "AND whole.number = (SELECT number FROM run WHERE run.taskID = task.taskID "
    "AND number >= first_run AND outcome IN (?, ?) ORDER BY number DESC LIMIT 1)";

std::optional<long long> integer_or_nothing(Statement& row, int column) {
    if (row.is_null(column)) return {};
    return row.integer(column);
}

std::optional<RunOutcome> outcome_or_nothing(Statement& row, int column) {
    if (row.is_null(column)) return {};
    return static_cast<RunOutcome>(row.integer(column));
}

std::optional<RunRecord> whole_or_nothing(Statement& row) {
    if (row.is_null(4)) return {};
    RunRecord run;
    run.outcome = outcome_or_nothing(row, 4);
    run.started = row.integer(5);
    return run;
}

/// By task, all with one statement: a look for each of a thousand tasks takes five times as long.
std::map<long long, Standing> standings(standalone::Database& memory) {
    Statement row = memory.prepare(SELECT_STANDINGS);
    row.bind(1, static_cast<int>(RunOutcome::success))
        .bind(2, static_cast<int>(RunOutcome::failed));
    std::map<long long, Standing> all;
    while (row.step()) {
        Standing& standing = all[row.integer(0)];
        standing.success_time = integer_or_nothing(row, 1);
        standing.overdue_from = integer_or_nothing(row, 2);
        standing.last_outcome = outcome_or_nothing(row, 3);
        standing.last_whole = whole_or_nothing(row);
    }
    return all;
}

}  // namespace

Metrics MetricsReader::read(const std::list<TDataBackupConfig>& stored,
                            const std::set<std::string>& wanted, long long now) {
    Metrics metrics;
    metrics.tasks = tasks(stored, now);
    metrics.shares = shares(wanted);
    metrics.alerts = count("alert");
    metrics.problems = count("problem");
    metrics.store_errors = standalone::DatabaseError::count();
    return metrics;
}

std::vector<TaskMetrics> MetricsReader::tasks(const std::list<TDataBackupConfig>& stored,
                                              long long now) {
    auto known = standings(memory_);
    auto totals = totals_.look();
    std::vector<TaskMetrics> all;
    all.reserve(stored.size());
    for (const TDataBackupConfig& task : stored) {
        const long long number = std::stoll(task.taskID);
        const Standing& standing = known[number];
        all.push_back(
            {.task_id = task.taskID,
             .name = task.taskName,
             .enabled = task.enable,
             .overdue = task.enable && standing.overdue_from && now >= *standing.overdue_from,
             .success_time = standing.success_time,
             .last_outcome = standing.last_outcome,
             .failed = standalone::has_failed(task, standing.last_whole),
             .total = totals[number]});
    }
    return all;
}

std::vector<ShareMetrics> MetricsReader::shares(const std::set<std::string>& wanted) {
    Statement row = memory_.prepare("SELECT destination, free, total, time FROM share_room");
    std::vector<ShareMetrics> all;
    while (row.step())
        if (wanted.contains(row.text(0)))
            all.push_back({.share = row.text(0),
                           .free = row.integer(1),
                           .total = row.integer(2),
                           .time = row.integer(3)});
    return all;
}

long long MetricsReader::count(const char* table) {
    Statement row = memory_.prepare(std::string("SELECT count(*) FROM ") + table);
    row.step();
    return row.integer(0);
}

}  // namespace services
