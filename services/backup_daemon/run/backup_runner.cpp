// Runs tasks: begins runs, writes their progress and events, hands on their ends.
#include "services/backup_daemon/run/backup_runner.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "platform/standalone/store/one_line.h"
#include "services/backup_daemon/run/run_goal.h"
#include "services/backup_daemon/run/run_settings.h"
#include "services/backup_daemon/run/worker_lanes.h"

namespace services {
namespace {

// Files that one run has on their way at one time: one lane waits for the server while another one
// keeps it busy. More of them bring nothing but memory, which many runs side by side share.
constexpr int LANES = 3;
constexpr int LANES_OF_ALL_RUNS = 6;

// Over a long line small files leave the server idle, and need little memory.
constexpr int LANES_FAR = 8;

int lanes_of_a_run() {
    return std::clamp(LANES_OF_ALL_RUNS / parallel_limit(), 1, LANES);
}

RunEvent event_of(RunOutcome outcome) {
    switch (outcome) {
        case RunOutcome::success:
            return RUN_SUCCEEDED;
        case RunOutcome::failed:
        case RunOutcome::interrupted:
            return RUN_FAILED;
        case RunOutcome::cancelled:
            break;
    }
    return RUN_CANCELLED;
}

std::string detail_of(const RunFigures& figures, const std::string& why) {
    if (!why.empty()) return why;
    return std::to_string(figures.files_done) + " files, " + std::to_string(figures.bytes_done) +
           " bytes";
}

}  // namespace

BackupRunner::BackupRunner(event_base* loop, standalone::Database& config,
                           standalone::Database& memory, std::string identity)
    : loop_(loop),
      clock_(loop),
      memory_(memory),
      identity_(std::move(identity)),
      progress_(memory),
      history_(memory),
      channels_(config) {}

RunGoal BackupRunner::goal(const TDataBackupConfig& task) {
    const standalone::DayNumber today =
        standalone::local_day(std::time(nullptr), standalone::machine_zone);
    RunGoal goal = goal_of(task, channels_.list(), today);
    goal.recorder = identity_;
    goal.check = check_reading();
    goal.lanes = lanes_of_a_run();
    goal.lanes_far = LANES_FAR / (1 + static_cast<int>(runs_.size()));
    return goal;
}

RunParts BackupRunner::parts(const TDataBackupConfig& task, const Destination& destination) {
    SmbLogin login{.server = destination.server,
                   .port = destination.port,
                   .share = destination.share,
                   .user = task.username,
                   .password = task.password};
    return {.clock = clock_,
            .tell = [this](RunEvent event, const std::string& task_name,
                           const std::string& detail) { events_.write(event, task_name, detail); },
            .places = std::make_unique<DestinationStore>(memory_, destination.key()),
            .memory = std::make_unique<CopyStore>(memory_, task.taskID),
            .lanes = std::make_unique<WorkerLanes>(loop_, std::move(login))};
}

/// Of files that were not complete the checkpoints tell; they are counted anew. Nothing hangs on
/// figures: those that cannot be read, or are an earlier run's, are none.
EarlierPart BackupRunner::earlier_part(const TDataBackupConfig& task, const RunParts& parts) {
    try {
        const auto figures = progress_.find(task.taskID);
        const long long started = std::strtoll(task.startTime.c_str(), nullptr, 10);
        if (!figures || figures->time_ms / 1000 < started) return {};
        long long complete = figures->bytes_done;
        parts.memory->move_to(parts.places->known().id);
        for (const Checkpoint& checkpoint : parts.memory->checkpoints())
            complete -= checkpoint.offset;
        return {.files = figures->files_done,
                .bytes = std::max(complete, 0LL),
                .bytes_planned = figures->bytes_planned,
                .percent = figures->percent};
    } catch (const standalone::DatabaseError&) {
        return {};
    }
}

void BackupRunner::begin(const TDataBackupConfig& task, bool resumed, Listener listener) {
    const std::string task_id = task.taskID;
    events_.write(resumed ? RUN_RESUMED : RUN_STARTED, task.taskName);
    BackupRun::Listener run_listener{listener.connected,
                                     [this, task_id](RunOutcome outcome, const std::string& why) {
                                         ended(task_id, outcome, why);
                                     }};
    RunGoal wanted = goal(task);
    RunParts made = parts(task, wanted.destination);
    if (resumed) made.earlier = earlier_part(task, made);
    auto run = std::make_unique<BackupRun>(std::move(made), task, std::move(wanted),
                                           std::move(run_listener));
    run->begin();
    // What stands there of the run before must not be taken for this one's.
    unwritten_[task_id] = unwritten(*run);
    write_figures();
    runs_[task_id] = {.run = std::move(run), .listener = std::move(listener)};
}

void BackupRunner::cancel(const std::string& task_id) {
    if (const auto entry = runs_.find(task_id); entry != runs_.end()) entry->second.run->cancel();
}

void BackupRunner::clean_up(const TDataBackupConfig& task) {
    if (const auto entry = runs_.find(task.taskID); entry != runs_.end())
        entry->second.deleted = true;
    else
        begin_clean_up(task);
}

/// Nobody waits for it, so what goes wrong is nobody's but the log's.
void BackupRunner::begin_clean_up(const TDataBackupConfig& task) {
    try {
        auto run = clean_up_run(task);
        if (!run) return;
        run->begin();
        clean_ups_[task.taskID] = std::move(run);
    } catch (const std::exception& error) {
        cleaned_up(task.taskID, error.what());
    }
}

/// @return null when the task has left nothing
std::unique_ptr<BackupRun> BackupRunner::clean_up_run(const TDataBackupConfig& task) {
    const std::string task_id = task.taskID;
    RunGoal wanted = clean_up_goal(task);
    wanted.recorder = identity_;
    RunParts made = parts(task, wanted.destination);
    made.tell = [](RunEvent, const std::string&, const std::string&) {};
    made.places = std::make_unique<UnwrittenDestinations>(memory_, wanted.destination.key());
    made.memory->move_to(made.places->known().id);
    if (made.memory->checkpoints().empty()) return {};
    BackupRun::Listener listener{
        [] {}, [this, task_id](RunOutcome, const std::string& why) { cleaned_up(task_id, why); }};
    return std::make_unique<BackupRun>(std::move(made), task, std::move(wanted),
                                       std::move(listener));
}

void BackupRunner::cleaned_up(const std::string& task_id, const std::string& why) {
    const auto run = clean_ups_.extract(task_id);
    if (!why.empty())
        std::fprintf(stderr, "unfinished files of task %s, which is deleted, stay for now: %s\n",
                     task_id.c_str(), standalone::one_line(why).c_str());
}

/// The event before the status, which the listener stores: a daemon killed in between tells the end
/// twice, the other way round it would not tell it at all.
void BackupRunner::ended(const std::string& task_id, RunOutcome outcome, const std::string& why) {
    const auto entry = runs_.extract(task_id);
    const auto& [run, listener, deleted] = entry.mapped();
    const auto figures = run->figures();
    retries_[task_id] += run->retries();
    unwritten_[task_id] = unwritten(*run);
    write_figures();
    events_.write(event_of(outcome), run->task().taskName, detail_of(figures, why));
    if (!why.empty())
        std::fprintf(stderr, "task %s \"%s\": %s\n", task_id.c_str(),
                     standalone::one_line(run->task().taskName).c_str(),
                     standalone::one_line(why).c_str());
    listener.ended(outcome);
    when_ended_();
    if (deleted) begin_clean_up(run->task());
}

/// No run hangs on them. What will never be written is given up: runs are to begin, and to say why
/// they get nowhere.
void BackupRunner::write_figures() {
    while (!unwritten_.empty()) {
        const auto first = unwritten_.begin();
        try {
            progress_.set(first->first, first->second.figures);
            history_.note(first->first, first->second.account);
        } catch (const standalone::DatabaseError& error) {
            complaints_.print(std::string("the progress of runs cannot be written: ") +
                              error.what());
            if (error.may_pass()) return;
        }
        unwritten_.erase(first);
    }
}

void BackupRunner::tick() {
    Worker::reap();
    for (const auto& [task_id, entry] : runs_) {
        entry.run->look_after();
        unwritten_[task_id] = unwritten(*entry.run);
    }
    for (const auto& [task_id, run] : clean_ups_) run->look_after();
    write_figures();
    events_.write_kept();
}

std::vector<RunningTask> BackupRunner::running() {
    std::vector<RunningTask> tasks;
    for (const auto& [task_id, entry] : runs_) {
        const auto figures = entry.run->figures();
        tasks.push_back({.task_id = task_id,
                         .percent = figures.percent,
                         .rate = figures.rate,
                         .lanes = entry.run->lanes()});
    }
    return tasks;
}

long long BackupRunner::retries(const std::string& task_id) const {
    const auto over = retries_.find(task_id);
    const auto running = runs_.find(task_id);
    return (over == retries_.end() ? 0 : over->second) +
           (running == runs_.end() ? 0 : running->second.run->retries());
}

}  // namespace services
