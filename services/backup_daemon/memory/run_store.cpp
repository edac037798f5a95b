// What outlives the daemon of a task's runs: when the next is due, how far the last one came.
#include "services/backup_daemon/memory/run_store.h"

namespace services {

std::optional<NextRun> RunStore::next_run(const std::string& task_id) {
    standalone::Statement row =
        database_.prepare("SELECT rule, due FROM next_run WHERE taskID = ?");
    if (!row.bind(1, task_id).step()) return {};
    return NextRun{row.text(0), row.integer(1)};
}

void RunStore::set_next_run(const std::string& task_id, const NextRun& next) {
    standalone::Statement insert = database_.prepare(
        "INSERT OR REPLACE INTO next_run SELECT taskID, ?, ? FROM task WHERE taskID = ?");
    insert.bind(1, next.rule).bind(2, next.due).bind(3, task_id).step();
}

void RunStore::clear_next_run(const std::string& task_id) {
    database_.prepare("DELETE FROM next_run WHERE taskID = ?").bind(1, task_id).step();
}

std::optional<RunFigures> RunStore::progress(const std::string& task_id) {
    standalone::Statement row = database_.prepare(
        "SELECT bytes_planned, bytes_done, percent, rate, files_done, files_left, files_failed, "
        "seconds_left, message, time_ms FROM run_progress WHERE taskID = ?");
    if (!row.bind(1, task_id).step()) return {};
    RunFigures figures{row.integer(0), row.integer(1), row.real(2), row.real(3), row.integer(4),
                       row.integer(5), row.integer(6), {},          row.text(8), row.integer(9)};
    if (!row.is_null(7)) figures.seconds_left = row.integer(7);
    return figures;
}

void RunStore::set_progress(const std::string& task_id, const RunFigures& figures) {
    standalone::Statement insert = database_.prepare(
        "INSERT OR REPLACE INTO run_progress "
        "SELECT taskID, ?, ?, ?, ?, ?, ?, ?, ?, ?, ? FROM task WHERE taskID = ?");
    insert.bind(1, figures.bytes_planned).bind(2, figures.bytes_done);
    insert.bind_real(3, figures.percent).bind_real(4, figures.rate);
    insert.bind(5, figures.files_done).bind(6, figures.files_left).bind(7, figures.files_failed);
    if (figures.seconds_left)
        insert.bind(8, *figures.seconds_left);
    else
        insert.bind_null(8);
    insert.bind(9, figures.message).bind(10, figures.time_ms).bind(11, task_id).step();
}

}  // namespace services
