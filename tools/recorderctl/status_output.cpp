// What there is to tell of the backups, for people as lines or as JSON.
#include "tools/recorderctl/status_output.h"

#include <array>
#include <cstdio>

#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/time_text.h"
#include "tools/recorderctl/output.h"

namespace recorderctl {

namespace {

using standalone::BackupStatus;
using standalone::one_line;
using standalone::RunProgress;
using standalone::TaskStatus;
using standalone::zoned_minute;

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

/// "59.9 MB/s".
std::string rate_text(double rate) {
    constexpr std::array UNITS = {"B/s", "kB/s", "MB/s", "GB/s"};
    std::size_t unit = 0;
    for (; rate >= 1000 && unit + 1 < UNITS.size(); ++unit) rate /= 1000;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", rate, UNITS[unit]);
    return text.data();
}

/// "1:05:09", hours, minutes and seconds.
std::string left_text(const std::optional<long long>& seconds) {
    if (!seconds) return "-";
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld", *seconds / 3600,
                  *seconds / 60 % 60, *seconds % 60);
    return text.data();
}

std::string percent_text(double percent) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f %%", percent);
    return text.data();
}

std::string time_or(const std::optional<long long>& time, const char* otherwise) {
    return time ? zoned_minute(*time) : otherwise;
}

std::string state_text(const TaskStatus& task) {
    const std::string status(table_text(strStatus_Arr, task.task.status));
    return task.place ? status + ' ' + std::to_string(*task.place + 1) : status;
}

std::string next_text(const TaskStatus& task) {
    return time_or(task.next_run, task.task.enable ? "none" : "disabled");
}

/// "7 failed".
std::string last_run_text(const TaskStatus& task) {
    const auto& run = task.last_run;
    if (!run) return "-";
    return std::to_string(run->number) + ' ' +
           std::string(run->outcome ? outcome_text(*run->outcome) : "running");
}

std::string columns(const std::array<std::string, 10>& cells) {
    constexpr std::array<std::size_t, 9> WIDTHS = {4, 13, 7, 10, 8, 14, 22, 22, 7};
    std::string line;
    for (std::size_t column = 0; column < WIDTHS.size(); ++column)
        line += padded(cells[column], WIDTHS[column]) + "  ";
    return line + cells.back();
}

std::string row_of(const TaskStatus& task) {
    const auto& progress = task.progress;
    return columns({task.task.taskID, state_text(task),
                    progress ? percent_text(progress->percent) : "-",
                    progress ? rate_text(progress->rate) : "-",
                    progress ? left_text(progress->seconds_left) : "-", last_run_text(task),
                    time_or(task.health.success_time, "never"), next_text(task),
                    task.overdue ? "OVERDUE" : "no", one_line(task.task.taskName)});
}

Urgency urgency_of(const TaskStatus& task) {
    if (!task.problems.empty()) return Urgency::has_problems;
    return task.runs() || task.place ? Urgency::at_work : Urgency::well;
}

TaskText text_of(const TaskStatus& task) {
    TaskText text{.lines = {row_of(task)}, .urgency = urgency_of(task)};
    if (task.progress && !task.progress->message.empty())
        text.lines.push_back("      waits: " + one_line(task.progress->message));
    return text;
}

void add_words(std::vector<std::string>& words, const TaskStatus& task,
               const std::vector<std::string>& texts) {
    for (const std::string& text : texts)
        words.push_back("  task " + task.task.taskID + " \"" + one_line(task.task.taskName) +
                        "\": " + one_line(text));
}

std::vector<std::string> words_of(const BackupStatus& status) {
    std::vector<std::string> words;
    for (const std::string& problem : status.problems) words.push_back("  " + one_line(problem));
    for (const TaskStatus& task : status.tasks) add_words(words, task, task.problems);
    for (const TaskStatus& task : status.tasks) add_words(words, task, task.notes);
    return words;
}

void add_run(JsonLine& line, const standalone::RunRecord& run) {
    line.add("last_run", run.number).add("last_started", run.started);
    if (run.ended) line.add("last_ended", *run.ended);
    line.add("last_outcome",
             run.outcome ? std::string(outcome_text(*run.outcome)) : std::string("running"));
    line.add("last_reason", run.reason);
}

void add_progress(JsonLine& line, const RunProgress& progress) {
    line.add("percent", progress.percent).add("rate", progress.rate);
    if (progress.seconds_left) line.add("seconds_left", *progress.seconds_left);
    line.add("message", progress.message).add("figures_time_ms", progress.time_ms);
}

JsonLine json_of(const TaskStatus& task) {
    JsonLine line;
    line.add("taskID", task.task.taskID).add("name", task.task.taskName);
    line.add("enabled", task.task.enable);
    line.add("state", std::string(table_text(strStatus_Arr, task.task.status)));
    if (task.place) line.add("place", static_cast<long long>(*task.place));
    if (task.progress) add_progress(line, *task.progress);
    if (task.health.success_time) line.add("last_success", *task.health.success_time);
    if (task.health.last_success > 0) line.add("last_success_run", task.health.last_success);
    if (task.last_run) add_run(line, *task.last_run);
    if (task.next_run) line.add("next_run", *task.next_run);
    if (task.health.overdue_from) line.add("overdue_from", *task.health.overdue_from);
    line.add("overdue", task.overdue).add("problems", task.problems);
    line.add("notes", task.notes);
    return line;
}

}  // namespace

StatusText status_text(const BackupStatus& status) {
    StatusText text;
    text.headline = one_line(status.headline());
    text.words = words_of(status);
    text.table_head = columns({"TASK", "STATE", "PERCENT", "RATE", "LEFT", "LAST RUN",
                               "LAST SUCCESS", "NEXT RUN", "OVERDUE", "NAME"});
    for (const TaskStatus& task : status.tasks) text.tasks.push_back(text_of(task));
    text.last_line = "Now: " + zoned_time(status.time) + ", local time; the backup daemon " +
                     (status.daemon_answers ? "answers." : "DOES NOT ANSWER.");
    return text;
}

std::vector<std::string> lines_of(const StatusText& text) {
    std::vector<std::string> lines = {text.headline};
    lines.insert(lines.end(), text.words.begin(), text.words.end());
    lines.insert(lines.end(), {"", text.table_head});
    for (const TaskText& task : text.tasks)
        lines.insert(lines.end(), task.lines.begin(), task.lines.end());
    lines.insert(lines.end(), {"", text.last_line});
    return lines;
}

void print_status_json(const standalone::BackupStatus& status) {
    std::vector<JsonLine> tasks;
    for (const TaskStatus& task : status.tasks) tasks.push_back(json_of(task));
    JsonLine line;
    line.add("needs_attention", status.needs_attention()).add("headline", status.headline());
    line.add("problems", status.problems).add("notes", status.notes).add("time", status.time);
    line.add("daemon_answers", status.daemon_answers).add("tasks", std::move(tasks)).print();
}

}  // namespace recorderctl
