// Reads what the backup daemon keeps of runs, for all who tell people of them.
#include "platform/standalone/store/run_records.h"

#include <cstdlib>
#include <limits>

namespace standalone {

namespace {

const std::string SELECT_RUNS =
    "SELECT taskID, number, task_name, cause, started, seen, ended, outcome, reason, "
    "files_planned, bytes_planned, files_sent, bytes_sent, files_kept, bytes_kept, "
    "files_failed, bytes_failed, files_removed, bytes_removed, rate FROM run ";
const std::string SELECT_NEWEST = SELECT_RUNS + "WHERE taskID = ?1 ORDER BY number DESC LIMIT 1";
const std::string SELECT_NEWEST_WHOLE =
    SELECT_RUNS + "WHERE taskID = ?1 AND outcome IN (" +
    std::to_string(static_cast<int>(RunOutcome::success)) + ", " +
    std::to_string(static_cast<int>(RunOutcome::failed)) + ") ORDER BY number DESC LIMIT 1";
const std::string SELECT_HEALTH =
    "SELECT taskID, first_run, last_success, success_time, success_goal, overdue_from, late_from, "
    "first_due, rule FROM task_health";

// The orders of the table and of its index: nothing is sorted.
constexpr char BY_NUMBER[] = " ORDER BY number DESC";
constexpr char BY_START[] = " ORDER BY started DESC, taskID DESC, number DESC";

constexpr int NO_LIMIT = -1;  // SQLite's word for it

FileAmount amount(Statement& row, int column) {
    return {row.integer(column), row.integer(column + 1)};
}

std::optional<long long> integer_or_nothing(Statement& row, int column) {
    if (row.is_null(column)) return {};
    return row.integer(column);
}

RunRecord load(Statement& row) {
    RunRecord run{.task_id = row.text(0),
                  .number = row.integer(1),
                  .task_name = row.text(2),
                  .cause = static_cast<RunCause>(row.integer(3)),
                  .started = row.integer(4),
                  .seen = row.integer(5),
                  .ended = integer_or_nothing(row, 6),
                  .outcome = {},
                  .reason = row.text(8),
                  .counts = {.planned = amount(row, 9),
                             .sent = amount(row, 11),
                             .kept = amount(row, 13),
                             .failed = amount(row, 15),
                             .removed = amount(row, 17),
                             .rate = row.real(19)}};
    if (!row.is_null(7)) run.outcome = static_cast<RunOutcome>(row.integer(7));
    return run;
}

TaskHealth load_health(Statement& row) {
    return {.first_run = row.integer(1),
            .last_success = row.integer(2),
            .success_time = integer_or_nothing(row, 3),
            .success_goal = row.text(4),
            .overdue_from = integer_or_nothing(row, 5),
            .late_from = integer_or_nothing(row, 6),
            .first_due = integer_or_nothing(row, 7),
            .rule = row.text(8)};
}

/// No task has the number 0.
long long task_number(const std::string& task_id) {
    const long long number = std::strtoll(task_id.c_str(), nullptr, 10);
    return std::to_string(number) == task_id ? number : 0;
}

std::optional<RunRecord> first(Statement& row) {
    if (!row.step()) return {};
    return load(row);
}

}  // namespace

void RunRecords::list(const RunFilter& filter, const std::function<void(const RunRecord&)>& take) {
    const bool of_one = !filter.task_id.empty();
    std::string sql = SELECT_RUNS + (of_one ? "WHERE taskID = ?2" : "WHERE true");
    if (filter.only_failed)
        sql += " AND outcome = " + std::to_string(static_cast<int>(RunOutcome::failed));
    sql += of_one ? BY_NUMBER : BY_START;
    Statement row = database_.prepare(sql + " LIMIT ?1");
    row.bind(1, filter.most.value_or(NO_LIMIT));
    if (of_one) row.bind(2, task_number(filter.task_id));
    while (row.step()) take(load(row));
}

std::vector<RunRecord> RunRecords::newest_before(const std::string& task_id, long long before,
                                                 int most) {
    Statement row = database_.prepare(SELECT_RUNS +
                                      "WHERE taskID = ?1 AND (?2 = 0 OR number < ?2) "
                                      "ORDER BY number DESC LIMIT ?3");
    row.bind(1, task_number(task_id)).bind(2, before).bind(3, most);
    std::vector<RunRecord> runs;
    while (row.step()) runs.push_back(load(row));
    return runs;
}

std::vector<std::pair<long long, double>> RunRecords::rates(const RunRecord& run) {
    Statement row = database_.prepare(
        "SELECT time, rate FROM run_rate WHERE taskID = ? AND time >= ? AND time <= ? ORDER BY "
        "time");
    row.bind(1, task_number(run.task_id)).bind(2, run.started);
    row.bind(3, run.ended.value_or(std::numeric_limits<long long>::max()));
    std::vector<std::pair<long long, double>> rates;
    while (row.step()) rates.emplace_back(row.integer(0), row.real(1));
    return rates;
}

std::optional<RunRecord> RunRecords::find(const std::string& task_id, long long number) {
    Statement row = database_.prepare(SELECT_RUNS + "WHERE taskID = ? AND number = ?");
    row.bind(1, task_number(task_id)).bind(2, number);
    return first(row);
}

std::optional<RunRecord> RunRecords::newest(const std::string& task_id) {
    Statement row = database_.prepare(SELECT_NEWEST);
    row.bind(1, task_number(task_id));
    return first(row);
}

/// @param sql one run of the task ?1
std::map<std::string, RunRecord> RunRecords::by_task(const std::vector<std::string>& task_ids,
                                                     const std::string& sql) {
    Statement row = database_.prepare(sql);
    std::map<std::string, RunRecord> runs;
    for (const std::string& task_id : task_ids) {
        row.reset();
        row.bind(1, task_number(task_id));
        if (row.step()) runs.emplace(task_id, load(row));
    }
    return runs;
}

std::map<std::string, RunRecord> RunRecords::newest_of(const std::vector<std::string>& task_ids) {
    return by_task(task_ids, SELECT_NEWEST);
}

std::map<std::string, RunRecord> RunRecords::newest_whole_of(
    const std::vector<std::string>& task_ids) {
    return by_task(task_ids, SELECT_NEWEST_WHOLE);
}

std::map<std::string, TaskHealth> RunRecords::all_health() {
    Statement row = database_.prepare(SELECT_HEALTH);
    std::map<std::string, TaskHealth> all;
    while (row.step()) all.emplace(row.text(0), load_health(row));
    return all;
}

std::vector<FailedFile> RunRecords::failures(const RunRecord& run) {
    Statement row = database_.prepare(
        "SELECT file, reason FROM run_failure WHERE taskID = ? AND number = ? ORDER BY place");
    row.bind(1, task_number(run.task_id)).bind(2, run.number);
    std::vector<FailedFile> files;
    while (row.step()) files.push_back({row.text(0), row.text(1)});
    return files;
}

std::set<std::string> RunRecords::lost_sight() {
    // CROSS: by each task's own rows, the newest first, and not through all that there are.
    Statement row = database_.prepare(
        "SELECT health.taskID FROM task_health AS health CROSS JOIN run AS found "
        "ON found.taskID = health.taskID AND found.number = health.last_success "
        "WHERE found.files_sent + found.files_kept = 0 AND EXISTS "
        "(SELECT 1 FROM run AS earlier WHERE earlier.taskID = found.taskID "
        "AND earlier.number < found.number AND earlier.goal = found.goal "
        "AND earlier.files_sent + earlier.files_kept > 0)");
    std::set<std::string> task_ids;
    while (row.step()) task_ids.insert(row.text(0));
    return task_ids;
}

std::optional<TaskHealth> RunRecords::health(const std::string& task_id) {
    Statement row = database_.prepare(SELECT_HEALTH + " WHERE taskID = ?");
    if (!row.bind(1, task_number(task_id)).step()) return {};
    return load_health(row);
}

std::map<std::string, long long> RunRecords::next_runs() {
    Statement row = database_.prepare("SELECT taskID, due FROM next_run");
    std::map<std::string, long long> times;
    while (row.step()) times[row.text(0)] = row.integer(1);
    return times;
}

bool has_failed(const TDataBackupConfig& task, const std::optional<RunRecord>& newest_whole) {
    const bool row_failed = newest_whole && newest_whole->outcome == RunOutcome::failed;
    const bool is_told = task.status == TASK_SUCCESS || task.status == TASK_FAILED;
    const bool was_failure = task.status == TASK_FAILED;
    const long long ended = std::strtoll(task.endTime.c_str(), nullptr, 10);
    if (!is_told || (newest_whole && newest_whole->started > ended)) return row_failed;
    const bool in_one_second = newest_whole && newest_whole->started == ended;
    return was_failure || (in_one_second && row_failed);
}

}  // namespace standalone
