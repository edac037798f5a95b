// What the runs of each task come to since the daemon began, counted from the history.
#include "services/backup_daemon/tell/run_totals.h"

#include <optional>
#include <vector>

namespace services {
namespace {

using standalone::Statement;

constexpr char SELECT[] =
    "SELECT number, outcome, files_sent, bytes_sent, files_failed FROM run "
    "WHERE taskID = ? AND number > ? ORDER BY number";

std::vector<long long> known_tasks(standalone::Database& memory) {
    Statement row = memory.prepare("SELECT taskID FROM task_health");
    std::vector<long long> tasks;
    while (row.step()) tasks.push_back(row.integer(0));
    return tasks;
}

/// Adds a run, or takes it off.
void add(RunTotal& total, Statement& run, int times = 1) {
    if (!run.is_null(1)) total.runs.at(static_cast<std::size_t>(run.integer(1))) += times;
    total.sent.files += times * run.integer(2);
    total.sent.bytes += times * run.integer(3);
    total.files_failed += times * run.integer(4);
}

long long newest_run(standalone::Database& memory, long long task) {
    Statement row = memory.prepare("SELECT max(number) FROM run WHERE taskID = ?");
    row.bind(1, task).step();
    return row.integer(0);
}

}  // namespace

/// The newest run so far may be one that the daemon's end has cut off: how it ends is still to be
/// written, what it has sent is not to be counted.
RunTotals::RunTotals(standalone::Database& memory) : memory_(memory) {
    for (const long long task : known_tasks(memory)) {
        const long long newest = newest_run(memory, task);
        if (newest == 0) continue;
        Known& known = known_[task];
        known.summed_up_to = newest - 1;
        Statement run = memory.prepare(SELECT);
        run.bind(1, task).bind(2, known.summed_up_to);
        if (run.step()) add(known.total, run, -1);
    }
}

std::map<long long, RunTotal> RunTotals::look() {
    std::map<long long, RunTotal> totals;
    Statement runs = memory_.prepare(SELECT);
    for (const long long task : known_tasks(memory_)) {
        Known& known = known_[task];
        runs.bind(1, task).bind(2, known.summed_up_to);
        totals[task] = look_at(runs, known);
        runs.reset();
    }
    return totals;
}

RunTotal RunTotals::look_at(Statement& runs, Known& known) {
    RunTotal total = known.total;
    while (runs.step()) {
        known.summed_up_to = runs.integer(0) - 1;
        known.total = total;
        add(total, runs);
    }
    return total;
}

}  // namespace services
