// How the backups are: what each task is at, and what somebody should look after.
#include "platform/standalone/store/backup_status.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "platform/standalone/store/remedy.h"
#include "platform/standalone/store/run_records.h"
#include "platform/standalone/store/schedule.h"
#include "platform/standalone/store/task_goal.h"
#include "platform/standalone/store/time_text.h"

namespace standalone {

namespace {

// A daemon writes the figures of its runs once a second.
constexpr long long OLDEST_FIGURES = 15;  // seconds

// A schedule is looked at once a second, as long as the daemon can.
constexpr long long LATEST_START = 120;  // seconds

constexpr std::ptrdiff_t NAMED_CAMERAS = 5;

constexpr char DAEMON_SILENT[] =
    "the backup daemon does not answer: nothing is copied, and no schedule is kept";
constexpr char NO_TASK[] = "there is no task: nothing is copied";
constexpr char ALL_DISABLED[] = "all tasks are disabled";
constexpr char LAST_RUN_FAILED[] = "its last run failed";
constexpr char NO_FIGURES[] = "it runs, and nothing tells how far it is";
constexpr char SCHEDULE_UNKNOWN[] = "the backup daemon has not looked at its schedule";
constexpr char NO_SCHEDULE[] = "no schedule ever starts it";
constexpr char NO_CAMERA[] = "no camera is chosen";
constexpr char FOUND_NOTHING[] = "its last success found no recordings, unlike those before";
constexpr char RANGE_ENDED[] = "its time range has ended";

std::string failure_text(const TaskStatus& task) {
    const auto& run = task.last_whole;
    if (!run || run->outcome != RunOutcome::failed) return LAST_RUN_FAILED;
    std::string text = "its run " + std::to_string(run->number) + " failed";
    if (run->ended) text += " at " + zoned_minute(*run->ended);
    return run->reason.empty() ? text : text + ": " + run->reason;
}

void judge_failure(TaskStatus& task) {
    if (!has_failed(task.task, task.last_whole)) return;
    const auto& run = task.last_whole;
    const bool is_known = run && run->outcome == RunOutcome::failed;
    task.problems.push_back(failure_text(task));
    task.remedies.push_back(remedy_for(ProblemKind::run_failed, is_known ? run->reason : ""));
}

/// Whoever has stopped a task knows of it. One that is taken up again has a newer run.
bool was_cut_off(const TaskStatus& task) {
    const auto& run = task.last_run;
    return run && run->outcome == RunOutcome::interrupted && task.task.status != TASK_CANCEL &&
           run->number > task.health.last_success;
}

std::string cut_off_text(const RunRecord& run) {
    return "its run " + std::to_string(run.number) + " was cut off: " + run.reason;
}

std::string overdue_text(const TaskStatus& task) {
    const std::string since =
        "overdue since " + zoned_minute(*task.health.overdue_from) + ": it has ";
    if (!task.health.success_time) return since + "never succeeded";
    return since + "not succeeded since " + zoned_minute(*task.health.success_time);
}

/// Of a daemon that does not answer that alone is told.
void judge_figures(TaskStatus& task, const BackupStatus& status) {
    if (!status.daemon_answers || !task.runs()) return;
    if (!task.progress) return task.problems.push_back(NO_FIGURES);
    const long long age = status.time - task.progress->time_ms / 1000;
    if (age > OLDEST_FIGURES)
        task.problems.push_back("it runs, and its figures are " + std::to_string(age) +
                                " seconds old");
}

/// Of a success that a version without a history knew, nobody knows what the task was then: but
/// whoever edits a task takes its "success" away.
bool is_of_an_unknown_task(const TaskHealth& health) {
    return health.last_success == 0 && health.success_goal.empty();
}

std::string next_attempt_text(const TaskStatus& task) {
    if (task.runs()) return " (runs now)";
    if (task.place) return " (in the queue)";
    return task.next_run ? " (due " + zoned_minute(*task.next_run) + ')' : "";
}

/// Why no success of a task stands for what it is to keep safe now; "" when one does.
std::string missing_text(const TaskStatus& task, long long now) {
    if (!task.health.success_time)
        return task.last_run ? "has never succeeded" : "waits for its first run";
    if (task.health.late_from && now >= *task.health.late_from)
        return "has not succeeded since " + zoned_minute(*task.health.success_time);
    if (is_of_an_unknown_task(task.health))
        return task.task.status == TASK_SUCCESS ? ""
                                                : "may have been changed since its last success";
    if (task.health.success_goal != task_goal(task.task))
        return "was changed since its last success";
    return "";
}

/// A schedule that has had no turn yet makes a task not overdue, and an old success no newer.
void look_for_success(TaskStatus& task, long long now) {
    task.missing = missing_text(task, now);
    if (task.missing.empty()) return;
    task.missing += next_attempt_text(task);
    if (!task.overdue) task.notes.push_back("it " + task.missing);
}

/// A task that no schedule starts is forgotten, however well it fared when somebody started it.
void judge_schedule(TaskStatus& task, const BackupStatus& status) {
    if (!task.is_known) return task.problems.push_back(SCHEDULE_UNKNOWN);
    // Of a new task a run may be known a moment before its next one is.
    if (!task.next_run && !first_due(task.task, status.time, machine_zone))
        return task.problems.push_back(NO_SCHEDULE);
    const bool is_started = task.place || task.runs();
    if (status.daemon_answers && task.next_run && !is_started &&
        *task.next_run < status.time - LATEST_START)
        task.problems.push_back("it came due at " + zoned_minute(*task.next_run) +
                                " and was not started");
}

bool has_ended_range(const TaskStatus& task, long long now) {
    const TDataBackupConfig& stored = task.task;
    return stored.backupType == BACKUP_BY_TIME_RANGE && !stored.backupEndDay.empty() &&
           stored.backupEndDay < time_text(now, "%Y-%m-%d").substr(0, stored.backupEndDay.size());
}

/// A day may well be without an alarm, and recordings of days that are over may have gone from the
/// recorder since.
void judge_selection(TaskStatus& task, long long now) {
    if (task.task.chIdxList.empty()) task.problems.emplace_back(NO_CAMERA);
    const bool is_expected = task.task.recordingType != REC_ALARM && !has_ended_range(task, now);
    if (task.found_nothing && is_expected) task.problems.emplace_back(FOUND_NOTHING);
}

void judge_enabled(TaskStatus& task, const BackupStatus& status) {
    const auto& overdue_from = task.health.overdue_from;
    task.overdue = overdue_from && status.time >= *overdue_from;
    judge_failure(task);
    if (was_cut_off(task)) task.problems.push_back(cut_off_text(*task.last_run));
    if (task.overdue) {
        task.problems.push_back(overdue_text(task));
        task.remedies.push_back(remedy_for(ProblemKind::overdue, ""));
    }
    judge_selection(task, status.time);
    if (!status.is_memory_read) return;
    judge_schedule(task, status);
    look_for_success(task, status.time);
    if (has_ended_range(task, status.time)) task.notes.emplace_back(RANGE_ENDED);
}

/// Whoever disables a task knows of it: only what it is at now can be wrong.
void judge(TaskStatus& task, const BackupStatus& status) {
    if (task.task.enable) judge_enabled(task, status);
    judge_figures(task, status);
}

bool is_enabled(const TaskStatus& task) {
    return task.task.enable;
}

std::string count_text(std::ptrdiff_t count, const char* what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

bool has_camera(const TaskStatus& task, int index) {
    std::istringstream indexes(task.task.chIdxList);
    for (std::string found; std::getline(indexes, found, ',');)
        if (found == std::to_string(index)) return true;
    return false;
}

bool is_copied(const BackupStatus& status, const Channel& camera) {
    return std::ranges::any_of(status.tasks, [&](const TaskStatus& task) {
        return is_enabled(task) && has_camera(task, camera.index);
    });
}

/// The headline has all of it, so it names the first alone.
void note_cameras(BackupStatus& status) {
    std::ptrdiff_t count = 0;
    std::string names;
    for (const auto& camera : status.cameras) {
        if (is_copied(status, camera) || ++count > NAMED_CAMERAS) continue;
        names += (names.empty() ? "" : ", ") + camera.name;
    }
    if (count == 0) return;
    if (count > NAMED_CAMERAS) names += " and " + std::to_string(count - NAMED_CAMERAS) + " more";
    status.notes.push_back(count_text(count, "camera") + (count == 1 ? " is" : " are") +
                           " in no enabled task: " + names);
}

void note_ended_ranges(BackupStatus& status) {
    for (const TaskStatus& task : status.tasks)
        if (is_enabled(task) && has_ended_range(task, status.time))
            status.notes.push_back("the time range of task " + task.task.taskID + " has ended");
}

void note_disabled(BackupStatus& status) {
    const auto count = std::ssize(status.tasks) - std::ranges::count_if(status.tasks, is_enabled);
    if (count > 0)
        status.notes.push_back(count_text(count, "task") + (count == 1 ? " is" : " are") +
                               " disabled");
}

/// Whoever is to hear of problems may think that there are none.
void note_alerts(BackupStatus& status) {
    const auto text = undelivered_text(status.alerts, status.given_up, status.time);
    if (!text.empty()) status.notes.push_back(text);
}

std::ptrdiff_t count_problems(const BackupStatus& status) {
    std::ptrdiff_t count = std::ssize(status.problems);
    for (const TaskStatus& task : status.tasks) count += std::ssize(task.problems);
    return count;
}

std::string not_yet_safe_text(const TaskStatus& first, std::ptrdiff_t count,
                              std::ptrdiff_t enabled) {
    const std::string text = "NOT YET SAFE: ";
    if (count == 1) return text + "task " + first.task.taskID + ' ' + first.missing;
    return text + std::to_string(count) + " of " + count_text(enabled, "task") +
           " have yet to succeed";
}

/// None of the tasks misses its success.
std::string safe_text(const BackupStatus& status, std::ptrdiff_t enabled) {
    long long oldest = status.time;
    for (const TaskStatus& task : status.tasks)
        if (is_enabled(task)) oldest = std::min(oldest, *task.health.success_time);
    if (enabled == 1) return "SAFE: the task has succeeded, at " + zoned_minute(oldest);
    return "SAFE: each of " + count_text(enabled, "task") + " has succeeded, at " +
           zoned_minute(oldest) + " or later";
}

bool is_missing(const TaskStatus& task) {
    return !task.missing.empty();
}

std::string words_of(const BackupStatus& status) {
    const auto verdict = status.verdict();
    if (verdict == Verdict::attention)
        return "ATTENTION: the recordings may not be safe, " +
               count_text(count_problems(status), "problem");
    const auto enabled = std::ranges::count_if(status.tasks, is_enabled);
    if (verdict == Verdict::safe) return safe_text(status, enabled);
    return not_yet_safe_text(*std::ranges::find_if(status.tasks, is_missing),
                             std::ranges::count_if(status.tasks, is_missing), enabled);
}

}  // namespace

std::string_view verdict_text(Verdict verdict) {
    switch (verdict) {
        case Verdict::safe:
            return "safe";
        case Verdict::not_yet_safe:
            return "not_yet_safe";
        case Verdict::attention:
            break;
    }
    return "attention";
}

bool TaskStatus::runs() const {
    return task.status == TASK_PREPARE_START || task.status == TASK_RUNNING ||
           task.status == TASK_PREPARE_STOP;
}

bool BackupStatus::needs_attention() const {
    const auto has_problems = [](const TaskStatus& task) { return !task.problems.empty(); };
    return !problems.empty() || std::ranges::any_of(tasks, has_problems);
}

Verdict BackupStatus::verdict() const {
    if (needs_attention()) return Verdict::attention;
    return std::ranges::any_of(tasks, is_missing) ? Verdict::not_yet_safe : Verdict::safe;
}

std::string BackupStatus::headline() const {
    std::string text = words_of(*this);
    for (const std::string& note : notes) text += "; " + note;
    return text;
}

void judge(BackupStatus& status) {
    if (!status.daemon_answers) status.problems.emplace_back(DAEMON_SILENT);
    if (std::ranges::none_of(status.tasks, is_enabled))
        status.problems.emplace_back(status.tasks.empty() ? NO_TASK : ALL_DISABLED);
    for (TaskStatus& task : status.tasks) judge(task, status);
    note_cameras(status);
    note_ended_ranges(status);
    note_disabled(status);
    note_alerts(status);
}

std::vector<std::string> constant_status_texts() {
    return {DAEMON_SILENT,    NO_TASK,     ALL_DISABLED, LAST_RUN_FAILED, NO_FIGURES,
            SCHEDULE_UNKNOWN, NO_SCHEDULE, NO_CAMERA,    FOUND_NOTHING,   RANGE_ENDED};
}

}  // namespace standalone
