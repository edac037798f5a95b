// recorderctl backup: what backups will do and have done, and what they are to look at once more.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "platform/standalone/store/strict_json.h"
#include "platform/standalone/store/utf8.h"
#include "tools/recorderctl/backup_progress.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/service_program.h"

namespace recorderctl {

namespace {

/// The plan's figures by name. What the program does not tell is 0 or "".
class Plan {
public:
    explicit Plan(const std::string& text) : object_(standalone::parse_strict_object(text)) {
        if (!object_) throw Failure("the backup daemon's program does not tell a plan");
    }

    std::string number(const char* name) const {
        return std::to_string(json_object_get_int64(json_object_object_get(object_.get(), name)));
    }

    std::string text(const char* name) const {
        json_object* value = json_object_object_get(object_.get(), name);
        return value ? json_object_get_string(value) : "";
    }

    bool flag(const char* name) const {
        return json_object_get_boolean(json_object_object_get(object_.get(), name)) != 0;
    }

private:
    JsonPtr object_;
};

void print_files(const char* what, const Plan& plan, const char* files, const char* bytes) {
    print_row({what, plan.number(files) + " files", plan.number(bytes) + " bytes"});
}

void print_for_people(const Plan& plan) {
    print_files("to copy", plan, "files", "bytes");
    print_row({"of", plan.number("cameras") + " cameras", plan.number("days") + " days",
               plan.text("first_day"), plan.text("last_day")});
    print_files("to compare", plan, "compare_files", "compare_bytes");
    print_files("to remove, too old", plan, "remove_files", "remove_bytes");
    const bool told = !plan.text("free_bytes").empty();
    print_row({"free on the share", told ? plan.number("free_bytes") + " bytes" : "not told"});
    print_row({"can make way", plan.number("can_make_way_bytes") + " bytes"});
    print_row({"fits", !told ? "not known" : plan.flag("fits") ? "yes" : "no"});
    for (const char* remark : {"problem", "why_copies_stay"})
        if (!plan.text(remark).empty()) print_row({"note", plan.text(remark)});
}

void print_plan(const std::string& task_id, bool json) {
    const std::string said = output_of_service("recording-backupd", {"--plan", task_id});
    const Plan plan(said.substr(0, said.find('\n')));
    if (json)
        std::cout << standalone::valid_utf8(said);
    else
        print_for_people(plan);
}

void recheck(const std::string& whose) {
    const std::string said = output_of_service("recording-backupd", {"--recheck", whose});
    std::cout << said.substr(0, said.find('\n'))
              << " copies will be compared with their recordings by the next runs\n";
}

void add_recheck_command(CLI::App& group) {
    const auto task_id = std::make_shared<std::string>("all");
    CLI::App* command = group.add_subcommand(
        "recheck", "Have the next runs compare all copies with their recordings");
    command->add_option("TASK", *task_id, "Those alone that this task has made");
    command->callback([task_id] { recheck(*task_id); });
}

}  // namespace

void add_backup_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("backup", "What backups will do and have done");
    group->require_subcommand(1);
    const auto task_id = std::make_shared<std::string>();
    const auto json = std::make_shared<bool>(false);
    CLI::App* plan = group->add_subcommand(
        "plan",
        "Tell what a run of the task would do if it began now; nothing is written anywhere");
    plan->add_option("TASK", *task_id, "Identifier of the task")->required();
    plan->add_flag("--json", *json, "One JSON object");
    plan->callback([task_id, json] { print_plan(*task_id, *json); });

    CLI::App* progress =
        group->add_subcommand("progress", "Tell how far each task's last run has come");
    progress->add_flag("--json", *json, "One JSON object a line; times in milliseconds");
    progress->callback([json] { print_progress(*json); });

    add_recheck_command(*group);
}

}  // namespace recorderctl
