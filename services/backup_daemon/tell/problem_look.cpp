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
using standalone::RunRecord;
using standalone::Statement;
using standalone::TaskHealth;

/// Spoilt copies of a task.
struct SpoiltCopies {
    long long since = 0;
    long long run = 0;  ///< the newest that has found some
    std::string words;
};

/// A task with what its runs have come to.
struct WatchedTask {
    const TDataBackupConfig& task;
    TaskHealth health;
    std::optional<RunRecord> newest_whole;
    std::optional<SpoiltCopies> spoilt;
};

/// What is stored of all tasks, each kind read with one statement.
class AllTasks {
public:
    AllTasks(Database& memory, const std::list<TDataBackupConfig>& tasks) {
        std::vector<std::string> task_ids;
        for (const TDataBackupConfig& task : tasks) task_ids.push_back(task.taskID);
        standalone::RunRecords records(memory);
        health_ = records.all_health();
        newest_whole_ = records.newest_whole_of(task_ids);
        Statement row =
            memory.prepare("SELECT taskID, since, run, copies, path FROM copies_differ");
        while (row.step())
            spoilt_[row.text(0)] = {
                .since = row.integer(1),
                .run = row.integer(2),
                .words = row.text(3) + " of them, the last one: " + row.text(4)};
    }

    WatchedTask watched(const TDataBackupConfig& task) {
        WatchedTask watched{.task = task, .health = {}, .newest_whole = {}, .spoilt = {}};
        if (auto health = health_.extract(task.taskID)) watched.health = std::move(health.mapped());
        auto whole = newest_whole_.extract(task.taskID);
        // Earlier ones are of another task.
        if (whole && whole.mapped().number >= watched.health.first_run)
            watched.newest_whole = std::move(whole.mapped());
        if (auto spoilt = spoilt_.extract(task.taskID)) watched.spoilt = std::move(spoilt.mapped());
        return watched;
    }

private:
    std::map<std::string, TaskHealth> health_;
    std::map<std::string, RunRecord> newest_whole_;
    std::map<std::string, SpoiltCopies> spoilt_;
};

// Where a task's runs began to fail: the first failure behind a number.
constexpr char FIRST_FAILURE[] =
    "SELECT ended FROM run WHERE taskID = ? AND number > ? AND outcome = ? "
    "ORDER BY number LIMIT 1";

ConcernedTask concerned(const WatchedTask& watched) {
    return {watched.task.taskID, watched.task.taskName, watched.health.success_time};
}

Problem problem_of(ProblemKind kind, const WatchedTask& watched) {
    return {.key = {kind, watched.task.taskID}, .tasks = {concerned(watched)}};
}

/// When the first run failed since the last one that succeeded; a run whose row is not closed yet
/// is known by its task alone.
/// @param row FIRST_FAILURE
long long failing_since(const WatchedTask& watched, Statement& row, long long now) {
    const TaskHealth& health = watched.health;
    row.reset();
    row.bind(1, std::stoll(watched.task.taskID));
    row.bind(2, std::max(health.last_success, health.first_run - 1));
    row.bind(3, static_cast<int>(RunOutcome::failed));
    if (row.step()) return row.integer(0);
    const long long ended = std::strtoll(watched.task.endTime.c_str(), nullptr, 10);
    return ended > 0 ? ended : now;
}

Problem look_at_runs(const WatchedTask& watched, Statement& first_failure, long long now) {
    Problem problem = problem_of(ProblemKind::run_failed, watched);
    const auto& whole = watched.newest_whole;
    problem.is_there = standalone::has_failed(watched.task, whole);
    if (!problem.is_there) return problem;
    problem.since = failing_since(watched, first_failure, now);
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
Problem look_at_copies(const WatchedTask& watched) {
    Problem problem = problem_of(ProblemKind::copies_differ, watched);
    if (!watched.spoilt) return problem;
    problem.is_there = watched.health.last_success <= watched.spoilt->run;
    problem.since = watched.spoilt->since;
    problem.detail = watched.spoilt->words;
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
    AllTasks all(memory, tasks);
    Statement first_failure = memory.prepare(FIRST_FAILURE);
    std::vector<Problem> found;
    SharesTasks shares;
    for (const TDataBackupConfig& task : tasks) {
        if (!task.enable) continue;
        const WatchedTask watched = all.watched(task);
        found.push_back(look_at_runs(watched, first_failure, now));
        found.push_back(look_at_schedule(watched, now));
        found.push_back(look_at_copies(watched));
        shares[share_of(task)].push_back(concerned(watched));
    }
    look_at_shares(shares, memory, full, found);
    return found;
}

}  // namespace services
