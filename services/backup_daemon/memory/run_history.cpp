// Writes the history of runs: a row for each from before its first byte on, closed when it is over.
#include "services/backup_daemon/memory/run_history.h"

namespace services {
namespace {

using standalone::FileAmount;
using standalone::RunOutcome;
using standalone::Statement;

void bind_amount(Statement& statement, int parameter, const FileAmount& amount) {
    statement.bind(parameter, amount.files).bind(parameter + 1, amount.bytes);
}

long long number_of(const std::string& task_id) {
    return std::stoll(task_id);
}

/// Of a run that is closed the reason of its end stays, unless only this tells it.
constexpr char NOTE[] =
    "UPDATE run SET files_planned = ?, bytes_planned = ?, files_sent = ?, bytes_sent = ?, "
    "files_kept = ?, bytes_kept = ?, files_failed = ?, bytes_failed = ?, files_removed = ?, "
    "bytes_removed = ?, rate = ?, seen = ?12, "
    "reason = CASE WHEN ?13 = '' AND outcome IS NOT NULL THEN reason ELSE ?13 END "
    "WHERE taskID = ?14 AND number = ?15";

void bind_counts(Statement& statement, const standalone::RunCounts& counts) {
    bind_amount(statement, 1, counts.planned);
    bind_amount(statement, 3, counts.sent);
    bind_amount(statement, 5, counts.kept);
    bind_amount(statement, 7, counts.failed);
    bind_amount(statement, 9, counts.removed);
    statement.bind_real(11, counts.rate);
}

}  // namespace

/// The counter is not taken from the rows, of which the newest may have been pruned.
void RunHistory::open(const std::string& task_id, const std::string& task_name,
                      standalone::RunCause cause, long long now) {
    const long long task = number_of(task_id);
    standalone::Transaction transaction(database_);
    database_.prepare("DELETE FROM run WHERE taskID = ? AND outcome IS NULL").bind(1, task).step();
    database_
        .prepare(
            "INSERT INTO task_health (taskID, last_number) VALUES (?, 1) "
            "ON CONFLICT (taskID) DO UPDATE SET last_number = last_number + 1")
        .bind(1, task)
        .step();
    Statement insert = database_.prepare(
        "INSERT INTO run (taskID, number, task_name, cause, started) "
        "SELECT taskID, last_number, ?, ?, ? FROM task_health WHERE taskID = ?");
    insert.bind(1, task_name).bind(2, static_cast<int>(cause)).bind(3, now).bind(4, task).step();
    transaction.commit();
}

void RunHistory::withdraw(const std::string& task_id) {
    const long long task = number_of(task_id);
    standalone::Transaction transaction(database_);
    database_.prepare("DELETE FROM run WHERE taskID = ? AND outcome IS NULL").bind(1, task).step();
    const int gone = database_.changes();
    database_.prepare("UPDATE task_health SET last_number = last_number - ? WHERE taskID = ?")
        .bind(1, gone)
        .bind(2, task)
        .step();
    transaction.commit();
}

void RunHistory::note(const std::string& task_id, const RunAccount& account) {
    const long long task = number_of(task_id);
    const long long number = newest(task_id);
    standalone::Transaction transaction(database_);
    Statement update = database_.prepare(NOTE);
    bind_counts(update, account.counts);
    update.bind(12, account.seen).bind(13, account.reason).bind(14, task).bind(15, number).step();
    add_failures(task, number, account.failures);
    transaction.commit();
}

/// Those that are there already do not change.
void RunHistory::add_failures(long long task, long long number,
                              const std::vector<standalone::FailedFile>& failures) {
    if (failures.empty()) return;
    Statement count =
        database_.prepare("SELECT count(*) FROM run_failure WHERE taskID = ? AND number = ?");
    count.bind(1, task).bind(2, number).step();
    for (auto place = static_cast<std::size_t>(count.integer(0)); place < failures.size(); ++place)
        database_
            .prepare(
                "INSERT INTO run_failure (taskID, number, place, file, reason) "
                "VALUES (?, ?, ?, ?, ?)")
            .bind(1, task)
            .bind(2, number)
            .bind(3, static_cast<long long>(place))
            .bind(4, failures[place].file)
            .bind(5, failures[place].reason)
            .step();
}

void RunHistory::close(const std::string& task_id, const RunEnd& end) {
    const long long task = number_of(task_id);
    const bool success = end.outcome == RunOutcome::success;
    standalone::Transaction transaction(database_);
    if (success) {
        Statement health = database_.prepare(
            "UPDATE task_health SET success_time = ?1, last_success = run.number, "
            "success_goal = run.goal FROM run "
            "WHERE task_health.taskID = ?2 AND run.taskID = ?2 AND run.outcome IS NULL");
        health.bind(1, end.ended).bind(2, task).step();
    }
    Statement update = database_.prepare(
        "UPDATE run SET outcome = ?1, ended = ?2, reason = CASE WHEN ?3 THEN '' "
        "WHEN ?4 = '' THEN reason ELSE ?4 END WHERE taskID = ?5 AND outcome IS NULL");
    update.bind(1, static_cast<int>(end.outcome)).bind(2, end.ended).bind(3, success);
    update.bind(4, end.reason).bind(5, task).step();
    transaction.commit();
}

std::vector<OpenRun> RunHistory::open_runs() {
    Statement row = database_.prepare(
        "SELECT taskID, started, seen FROM run WHERE outcome IS NULL ORDER BY taskID");
    std::vector<OpenRun> runs;
    while (row.step()) runs.push_back({row.text(0), row.integer(1), row.integer(2)});
    return runs;
}

long long RunHistory::newest(const std::string& task_id) {
    Statement row = database_.prepare("SELECT max(number) FROM run WHERE taskID = ?");
    row.bind(1, number_of(task_id)).step();
    return row.integer(0);
}

}  // namespace services
