// Reads how the backups are: the databases, and whether the daemon is there.
#include "platform/standalone/store/status_reading.h"

#include <ctime>
#include <map>
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
std::optional<RunRecord> own_run(const TaskStatus& task, std::optional<RunRecord> run) {
    if (run && run->number < task.health.first_run) run.reset();
    return run;
}

void add_runs(Database& memory, std::vector<TaskStatus>& tasks) {
    RunRecords records(memory);
    std::vector<std::string> ids;
    ids.reserve(tasks.size());
    for (const TaskStatus& task : tasks) ids.push_back(task.task.taskID);
    const auto newest = records.newest_of(ids);
    const auto newest_whole = records.newest_whole_of(ids);
    const auto health = records.all_health();
    const auto lost_sight = records.lost_sight();
    const auto progress = all_progress(memory);
    const auto next_runs = records.next_runs();
    for (TaskStatus& task : tasks) {
        const std::string& task_id = task.task.taskID;
        const auto known = found_in(health, task_id);
        task.is_known = known.has_value();
        if (known) task.health = *known;
        task.last_run = own_run(task, found_in(newest, task_id));
        task.last_whole = own_run(task, found_in(newest_whole, task_id));
        task.found_nothing = lost_sight.contains(task_id);
        if (task.task.enable) task.next_run = found_in(next_runs, task_id);
        if (task.runs()) task.progress = found_in(progress, task_id);
    }
}

void add_memory(BackupStatus& status) {
    Database memory = open_backup_memory();
    memory.run("BEGIN");  // all from one moment, with one look at the locks
    add_runs(memory, status.tasks);
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

BackupStatus backup_status(Database& config, bool daemon_answers) {
    BackupStatus status;
    status.tasks = stored_tasks(config);
    status.cameras = cameras(config);
    status.daemon_answers = daemon_answers;
    try {
        add_memory(status);
        status.is_memory_read = true;
    } catch (const std::exception& error) {
        status.problems.emplace_back(error.what());
    }
    status.time = std::time(nullptr);
    judge(status);
    return status;
}

}  // namespace standalone
