// recorderctl run: the history of the backup runs.
#include <CLI/CLI.hpp>
#include <memory>

#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/run_records.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"

namespace recorderctl {

namespace {

using standalone::FailedFile;
using standalone::FileAmount;
using standalone::one_line;
using standalone::RunFilter;
using standalone::RunRecord;
using standalone::RunRecords;

constexpr int LISTED_RUNS = 100;

struct ShownRun {
    std::string task_id;
    long long number = 0;  ///< 0: the newest
};

std::string outcome_of(const RunRecord& run) {
    return run.outcome ? std::string(outcome_text(*run.outcome)) : "running";
}

void add_amount(JsonLine& line, const std::string& what, const FileAmount& amount) {
    line.add(("files_" + what).c_str(), amount.files);
    line.add(("bytes_" + what).c_str(), amount.bytes);
}

JsonLine json_of(const RunRecord& run) {
    JsonLine line;
    line.add("taskID", run.task_id).add("number", run.number).add("name", run.task_name);
    line.add("cause", std::string(cause_text(run.cause))).add("started", run.started);
    if (run.ended) line.add("ended", *run.ended);
    line.add("outcome", outcome_of(run)).add("reason", run.reason);
    add_amount(line, "planned", run.counts.planned);
    add_amount(line, "sent", run.counts.sent);
    add_amount(line, "kept", run.counts.kept);
    add_amount(line, "failed", run.counts.failed);
    add_amount(line, "removed", run.counts.removed);
    line.add("rate", run.counts.rate);
    return line;
}

void print_text(const RunRecord& run) {
    print_row({run.task_id, std::to_string(run.number), std::string(cause_text(run.cause)),
               zoned_time(run.started), run.ended ? zoned_time(*run.ended) : "-", outcome_of(run),
               std::to_string(run.counts.sent.files) + " sent",
               std::to_string(run.counts.failed.files) + " failed", one_line(run.task_name),
               one_line(run.reason)});
}

void list_runs(const RunFilter& filter, bool json) {
    standalone::Database memory = standalone::open_backup_memory();
    RunRecords(memory).list(filter, [json](const RunRecord& run) {
        if (json)
            json_of(run).print();
        else
            print_text(run);
    });
}

RunRecord wanted_run(RunRecords& records, const ShownRun& wanted) {
    const auto run = wanted.number == 0 ? records.newest(wanted.task_id)
                                        : records.find(wanted.task_id, wanted.number);
    if (run) return *run;
    if (wanted.number == 0) throw Failure("no run of a task " + wanted.task_id + " is kept");
    throw Failure("no run " + std::to_string(wanted.number) + " of a task " + wanted.task_id +
                  " is kept");
}

void print_json(const RunRecord& run, const std::vector<FailedFile>& failures) {
    std::vector<JsonLine> files;
    for (const FailedFile& failed : failures)
        files.emplace_back().add("file", failed.file).add("reason", failed.reason);
    json_of(run).add("failures", std::move(files)).print();
}

void print_amount(const char* what, const FileAmount& amount) {
    print_row(
        {what, std::to_string(amount.files) + " files", std::to_string(amount.bytes) + " bytes"});
}

void print_for_people(const RunRecord& run, const std::vector<FailedFile>& failures) {
    print_row({"task", run.task_id, one_line(run.task_name)});
    print_row({"run", std::to_string(run.number)});
    print_row({"started", zoned_time(run.started), std::string(cause_text(run.cause))});
    print_row({"ended", run.ended ? zoned_time(*run.ended) : "-"});
    print_row({"outcome", outcome_of(run), one_line(run.reason)});
    print_amount("planned", run.counts.planned);
    print_amount("sent", run.counts.sent);
    print_amount("kept", run.counts.kept);
    print_amount("failed", run.counts.failed);
    print_amount("removed", run.counts.removed);
    print_row({"rate", std::to_string(static_cast<long long>(run.counts.rate)) + " bytes/s"});
    for (const FailedFile& failed : failures) print_row({"not copied", one_line(failed.reason)});
    const long long more = run.counts.failed.files - std::ssize(failures);
    if (more > 0) print_row({"not copied", "and " + std::to_string(more) + " more"});
}

void show_run(const ShownRun& wanted, bool json) {
    standalone::Database memory = standalone::open_backup_memory();
    RunRecords records(memory);
    const RunRecord run = wanted_run(records, wanted);
    const auto failures = records.failures(run);
    if (json)
        print_json(run, failures);
    else
        print_for_people(run, failures);
}

}  // namespace

void add_run_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("run", "The history of the backup runs");
    group->require_subcommand(1);
    const auto json = std::make_shared<bool>(false);
    const auto filter = std::make_shared<RunFilter>();
    filter->most = LISTED_RUNS;
    CLI::App* list = group->add_subcommand("list", "List the newest 100 runs, the newest first");
    list->add_option("TASK", filter->task_id, "Identifier of a task, also of a deleted one");
    list->add_flag("--failed", filter->only_failed, "Only those that failed");
    list->add_flag_callback(
        "--all", [filter] { filter->most.reset(); }, "All that are kept");
    list->add_flag("--json", *json, "One JSON object a line; times in seconds since the epoch");
    list->callback([filter, json] { list_runs(*filter, *json); });

    const auto wanted = std::make_shared<ShownRun>();
    CLI::App* show = group->add_subcommand("show", "Show a run and the files that it did not copy");
    show->add_option("TASK", wanted->task_id, "Identifier of the task")->required();
    show->add_option("NUMBER", wanted->number, "Number of the run; the newest when left out")
        ->check(CLI::PositiveNumber);
    show->add_flag("--json", *json, "One JSON object; times in seconds since the epoch");
    show->callback([wanted, json] { show_run(*wanted, *json); });
}

}  // namespace recorderctl
