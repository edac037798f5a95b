// Finds out which problems there are, from nothing but what is stored.
#include "services/backup_daemon/tell/problem_look.h"

#include <algorithm>
#include <cstdlib>
#include <map>

#include "platform/standalone/store/run_records.h"

namespace services {
namespace {

using standalone::Database;
using standalone::RunOutcome;
using standalone::Statement;
using standalone::TaskHealth;

/// A task with what its runs have come to.
struct WatchedTask {
    const TDataBackupConfig& task;
    TaskHealth health;
};

ConcernedTask concerned(const WatchedTask& watched) {
    return {watched.task.taskID, watched.task.taskName, watched.health.success_time};
}

Problem problem_of(ProblemKind kind, const WatchedTask& watched) {
    return {.key = {kind, watched.task.taskID}, .tasks = {concerned(watched)}};
}

/// When the first run failed since the last one that succeeded; a run whose row is not closed yet
/// is known by its task alone.
long long failing_since(const WatchedTask& watched, Database& memory, long long now) {
    Statement row = memory.prepare(
        "SELECT ended FROM run WHERE taskID = ? AND number > ? AND outcome = ? "
        "ORDER BY number LIMIT 1");
    const TaskHealth& health = watched.health;
    row.bind(1, std::stoll(watched.task.taskID));
    row.bind(2, std::max(health.last_success, health.first_run - 1));
    row.bind(3, static_cast<int>(RunOutcome::failed));
    if (row.step()) return row.integer(0);
    const long long ended = std::strtoll(watched.task.endTime.c_str(), nullptr, 10);
    return ended > 0 ? ended : now;
}

Problem look_at_runs(const WatchedTask& watched, Database& memory, long long now) {
    Problem problem = problem_of(ProblemKind::run_failed, watched);
    auto whole = standalone::RunRecords(memory).newest_whole(watched.task.taskID);
    if (whole && whole->number < watched.health.first_run) whole.reset();  // of another task
    problem.is_there = standalone::has_failed(watched.task, whole);
    if (!problem.is_there) return problem;
    problem.since = failing_since(watched, memory, now);
    if (!whole || whole->outcome != RunOutcome::failed) return problem;
    problem.detail = whole->reason;
    problem.run = whole->number;
    return problem;
}

Problem look_at_schedule(const WatchedTask& watched, long long now) {
    Problem problem = problem_of(ProblemKind::overdue, watched);
    problem.since = watched.health.overdue_from.value_or(0);
    problem.is_there = watched.health.overdue_from && *watched.health.overdue_from <= now;
    return problem;
}

/// It is over with a success behind the run that has found them.
Problem look_at_copies(const WatchedTask& watched, Database& memory) {
    Problem problem = problem_of(ProblemKind::copies_differ, watched);
    Statement row =
        memory.prepare("SELECT since, run, copies, path FROM copies_differ WHERE taskID = ?");
    if (!row.bind(1, std::stoll(watched.task.taskID)).step()) return problem;
    problem.is_there = watched.health.last_success <= row.integer(1);
    problem.since = row.integer(0);
    problem.detail = row.text(2) + " of them, the last one: " + row.text(3);
    return problem;
}

/// Percents are reckoned such that no share is too large for them.
Problem look_at_share(const std::string& share, Statement& row, bool was_full) {
    const long long free = row.integer(1);
    const long long total = row.integer(2);
    const long long percent = was_full ? FREE_AGAIN : LEAST_FREE;
    return {.key = {ProblemKind::share_nearly_full, share},
            .tasks = {},
            .is_there = total > 0 && free < total / 100 * percent + total % 100 * percent / 100,
            .since = row.integer(3),
            .detail = std::to_string(free) + " of " + std::to_string(total) + " bytes are free"};
}

using SharesTasks = std::map<std::string, std::vector<ConcernedTask>>;

void look_at_shares(const SharesTasks& shares, Database& memory, const std::set<std::string>& full,
                    std::vector<Problem>& found) {
    Statement row = memory.prepare("SELECT destination, free, total, time FROM share_room");
    while (row.step()) {
        const std::string share = row.text(0);
        const auto tasks = shares.find(share);
        if (tasks == shares.end()) continue;
        Problem problem = look_at_share(share, row, full.contains(share));
        problem.tasks = tasks->second;
        found.push_back(std::move(problem));
    }
}

}  // namespace

std::vector<Problem> look_for_problems(const std::list<TDataBackupConfig>& tasks,
                                       const ShareOf& share_of, Database& memory,
                                       const std::set<std::string>& full, long long now) {
    standalone::RunRecords records(memory);
    std::vector<Problem> found;
    SharesTasks shares;
    for (const TDataBackupConfig& task : tasks) {
        if (!task.enable) continue;
        const WatchedTask watched{task, records.health(task.taskID).value_or(TaskHealth())};
        found.push_back(look_at_runs(watched, memory, now));
        found.push_back(look_at_schedule(watched, now));
        found.push_back(look_at_copies(watched, memory));
        shares[share_of(task)].push_back(concerned(watched));
    }
    look_at_shares(shares, memory, full, found);
    return found;
}

}  // namespace services
