// Reads how the backups are: the databases, and whether the daemon is there.
#include "platform/standalone/store/status_reading.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "platform/daemon_messages.h"
#include "platform/service_addresses.h"
#include "platform/ssci_client.h"
#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/run_records.h"

namespace standalone {

namespace {

std::map<std::string, RunProgress> all_progress(Database& memory) {
    std::map<std::string, RunProgress> all;
    Statement row = memory.prepare(
        "SELECT taskID, percent, rate, seconds_left, message, time_ms, files_done, files_left, "
        "bytes_done, bytes_planned FROM run_progress");
    while (row.step()) {
        RunProgress progress{.percent = row.real(1),
                             .rate = row.real(2),
                             .done = {row.integer(6), row.integer(8)},
                             .left = {row.integer(7), row.integer(9) - row.integer(8)},
                             .seconds_left = {},
                             .message = row.text(4),
                             .time_ms = row.integer(5)};
        if (!row.is_null(3)) progress.seconds_left = row.integer(3);
        all[row.text(0)] = progress;
    }
    return all;
}

std::vector<Channel> cameras(Database& config) {
    auto channels = ChannelStore(config).list();
    std::erase_if(channels, [](const auto& channel) { return channel.removed; });
    return channels;
}

/// With their places in the queue.
std::vector<TaskStatus> stored_tasks(Database& config) {
    TaskStore store(config);
    auto list = store.list();
    std::vector<TaskStatus> tasks;
    tasks.reserve(list.size());
    for (auto& task : list) tasks.emplace_back().task = std::move(task);
    const auto queue = store.queue();
    for (std::size_t place = 0; place < queue.size(); ++place)
        for (TaskStatus& task : tasks)
            if (task.task.taskID == queue[place].task_id) task.place = place;
    return tasks;
}

template <class Value>
std::optional<Value> found_in(const std::map<std::string, Value>& all, const std::string& task_id) {
    const auto found = all.find(task_id);
    if (found == all.end()) return {};
    return found->second;
}

/// An identifier may have been another task's.
void keep_own(const TaskStatus& task, std::optional<RunRecord>& run) {
    if (run && run->number < task.health.first_run) run.reset();
}

std::vector<std::string> identifiers(const std::vector<TaskStatus>& tasks,
                                     bool (*is_asked_for)(const TaskStatus&)) {
    std::vector<std::string> ids;
    for (const TaskStatus& task : tasks)
        if (is_asked_for(task)) ids.push_back(task.task.taskID);
    return ids;
}

bool is_whole(const RunRecord& run) {
    return run.outcome == RunOutcome::success || run.outcome == RunOutcome::failed;
}

/// Mostly a task's newest run is its newest whole one, too.
bool has_older_whole_run(const TaskStatus& task) {
    return task.last_run && !is_whole(*task.last_run);
}

void add_runs(RunRecords& records, std::vector<TaskStatus>& tasks) {
    const auto newest = records.newest_of(identifiers(tasks, [](const auto&) { return true; }));
    for (TaskStatus& task : tasks) {
        task.last_run = found_in(newest, task.task.taskID);
        if (task.last_run && is_whole(*task.last_run)) task.last_whole = task.last_run;
    }
    const auto older = identifiers(tasks, has_older_whole_run);
    if (older.empty()) return;
    const auto newest_whole = records.newest_whole_of(older);
    for (TaskStatus& task : tasks)
        if (has_older_whole_run(task)) task.last_whole = found_in(newest_whole, task.task.taskID);
}

void add_health(RunRecords& records, std::vector<TaskStatus>& tasks) {
    const auto health = records.all_health();
    for (TaskStatus& task : tasks) {
        const auto known = found_in(health, task.task.taskID);
        task.is_known = known.has_value();
        if (known) task.health = *known;
        keep_own(task, task.last_run);
        keep_own(task, task.last_whole);
    }
}

/// Of most tasks it is known already that their last success has found something.
bool may_have_lost_sight(const TaskStatus& task) {
    const auto& run = task.last_whole;
    if (task.health.last_success == 0) return false;
    if (!run || run->number != task.health.last_success) return true;
    return run->counts.sent.files + run->counts.kept.files == 0;
}

void add_lost_sight(RunRecords& records, std::vector<TaskStatus>& tasks) {
    if (std::ranges::none_of(tasks, may_have_lost_sight)) return;
    const auto lost_sight = records.lost_sight();
    for (TaskStatus& task : tasks) task.found_nothing = lost_sight.contains(task.task.taskID);
}

void add_next_runs(RunRecords& records, std::vector<TaskStatus>& tasks) {
    const auto next_runs = records.next_runs();
    for (TaskStatus& task : tasks)
        if (task.task.enable) task.next_run = found_in(next_runs, task.task.taskID);
}

void add_progress(Database& memory, std::vector<TaskStatus>& tasks) {
    if (std::ranges::none_of(tasks, &TaskStatus::runs)) return;
    const auto progress = all_progress(memory);
    for (TaskStatus& task : tasks)
        if (task.runs()) task.progress = found_in(progress, task.task.taskID);
}

void add_memory(BackupStatus& status) {
    // Kept until the next reading: a process that ends by _exit(2) need not close it.
    thread_local std::optional<Database> kept;
    Database& memory = kept.emplace(open_backup_memory());
    // All from one moment, with one look at the locks.
    const Transaction moment(memory, Database::Access::reading);
    RunRecords records(memory);
    add_runs(records, status.tasks);
    add_health(records, status.tasks);
    add_lost_sight(records, status.tasks);
    add_next_runs(records, status.tasks);
    add_progress(memory, status.tasks);
    status.alerts = undelivered_alerts(memory);
    status.given_up = given_up_receivers(memory);
}

}  // namespace

bool backup_daemon_answers(long seconds) {
    query_object query;
    query["act"] = RUNNING_QUERY;
    std::string response;
    return ssci_GET_request(LOOPBACK, NOTICE_PORT, NOTICE_PATH, &query, response, seconds, false,
                            false, 0, nullptr) == 0;
}

BackupStatus backup_status(Database& config, const std::function<bool()>& daemon_answers) {
    BackupStatus status;
    status.tasks = stored_tasks(config);
    status.cameras = cameras(config);
    try {
        add_memory(status);
        status.is_memory_read = true;
    } catch (const std::exception& error) {
        status.problems.emplace_back(error.what());
    }
    status.daemon_answers = daemon_answers();
    status.time = std::time(nullptr);
    judge(status);
    return status;
}

}  // namespace standalone
