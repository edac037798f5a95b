// How far each task's last run has come, in the daemon's own database, for people to look at.
#include "services/backup_daemon/memory/progress_store.h"

namespace services {

namespace {

constexpr long long RATE_EACH = 5;  // seconds
constexpr long long MOST_RATES = 240;

}  // namespace

std::optional<RunFigures> ProgressStore::find(const std::string& task_id) {
    standalone::Statement row = database_.prepare(
        "SELECT bytes_planned, bytes_done, percent, rate, files_done, files_left, files_failed, "
        "seconds_left, message, time_ms FROM run_progress WHERE taskID = ?");
    if (!row.bind(1, std::stoll(task_id)).step()) return {};
    RunFigures figures{.bytes_planned = row.integer(0),
                       .bytes_done = row.integer(1),
                       .percent = row.real(2),
                       .rate = row.real(3),
                       .files_done = row.integer(4),
                       .files_left = row.integer(5),
                       .files_failed = row.integer(6),
                       .seconds_left = {},
                       .message = row.text(8),
                       .time_ms = row.integer(9)};
    if (!row.is_null(7)) figures.seconds_left = row.integer(7);
    return figures;
}

void ProgressStore::set(const std::string& task_id, const RunFigures& figures) {
    standalone::Statement insert = database_.prepare(
        "INSERT OR REPLACE INTO run_progress (taskID, bytes_planned, bytes_done, percent, rate, "
        "files_done, files_left, files_failed, seconds_left, message, time_ms) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, std::stoll(task_id));
    insert.bind(2, figures.bytes_planned).bind(3, figures.bytes_done);
    insert.bind_real(4, figures.percent).bind_real(5, figures.rate);
    insert.bind(6, figures.files_done).bind(7, figures.files_left).bind(8, figures.files_failed);
    if (figures.seconds_left)
        insert.bind(9, *figures.seconds_left);
    else
        insert.bind_null(9);
    insert.bind(10, figures.message).bind(11, figures.time_ms).step();
    keep_rate(task_id, figures);
}

/// What lies ahead of now is of a clock that was set back.
void ProgressStore::keep_rate(const std::string& task_id, const RunFigures& figures) {
    const long long task = std::stoll(task_id);
    const long long now = figures.time_ms / 1000;
    standalone::Statement insert = database_.prepare(
        "INSERT INTO run_rate (taskID, time, rate) SELECT ?1, ?2, ?3 WHERE NOT EXISTS "
        "(SELECT 1 FROM run_rate WHERE taskID = ?1 AND time > ?2 - ?4 AND time <= ?2)");
    insert.bind(1, task).bind(2, now).bind_real(3, figures.rate).bind(4, RATE_EACH).step();
    if (database_.changes() == 0) return;
    standalone::Statement removal = database_.prepare(
        "DELETE FROM run_rate WHERE taskID = ?1 AND (time <= ?2 - ?3 OR time > ?2)");
    removal.bind(1, task).bind(2, now).bind(3, RATE_EACH * MOST_RATES).step();
}

}  // namespace services
