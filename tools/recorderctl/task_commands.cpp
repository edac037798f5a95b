// recorderctl task: the stored backup tasks, for support.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <ranges>

#include "platform/nvrcfg.h"
#include "platform/standalone/store/task_fields.h"
#include "platform/standalone/store/task_store.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/password_input.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

using Assignment = std::pair<std::string, std::string>;
using standalone::TaskField;
using standalone::TaskStore;

void add_member(JsonLine& line, const char* key, float number) {
    line.add(key, static_cast<double>(number));
}

template <typename Value>
void add_member(JsonLine& line, const char* key, const Value& value) {
    line.add(key, value);
}

void print_json(const TDataBackupConfig& task) {
    JsonLine line;
    line.add("taskID", task.taskID);
    for (const TaskField& field : standalone::task_fields())
        std::visit([&](auto member) { add_member(line, field.name.data(), task.*member); },
                   field.member);
    line.print();
}

void list_tasks(bool json) {
    standalone::Database database = open_config();
    for (const TDataBackupConfig& task : TaskStore(database).list()) {
        if (json)
            print_json(task);
        else
            print_row({task.taskID, task.enable ? "enabled" : "disabled",
                       std::string(table_text(strStatus_Arr, task.status)), task.taskName});
    }
}

/// A password on the command line could be read by everyone on the machine.
std::string password_value(const std::string& value) {
    if (value != "-") throw Failure("write password=- and give the password on standard input");
    return read_password();
}

Assignment parse_assignment(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) throw Failure("write FIELD=VALUE, not " + text);
    Assignment assignment{text.substr(0, equals), text.substr(equals + 1)};
    if (assignment.first == "password") assignment.second = password_value(assignment.second);
    return assignment;
}

void set_fields(const std::string& task_id, const std::vector<std::string>& texts) {
    std::vector<Assignment> assignments;
    std::ranges::transform(texts, std::back_inserter(assignments), parse_assignment);
    standalone::Database database = open_config();
    switch (TaskStore(database).set_fields(task_id, assignments)) {
        case 0:
            std::cout << task_id << '\n';
            return;
        case NVRCFG_UNKNOWN_TASK:
            throw Failure("there is no task " + task_id);
        default:
            throw Failure("no such field of a task, or no value for it; nothing was changed");
    }
}

}  // namespace

void add_task_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("task", "Stored backup tasks");
    group->require_subcommand(1);
    const auto json = std::make_shared<bool>(false);
    CLI::App* list = group->add_subcommand("list", "List the tasks");
    list->add_flag("--json", *json, "One JSON object a line, every field of the record");
    list->callback([json] { list_tasks(*json); });

    const auto task_id = std::make_shared<std::string>();
    const auto texts = std::make_shared<std::vector<std::string>>();
    CLI::App* set = group->add_subcommand("set", "Set fields of a stored task, all or none");
    set->add_option("ID", *task_id, "Identifier of the task")->required();
    set->add_option("FIELD=VALUE", *texts,
                    "For example status=1; password=- reads it from standard input")
        ->required();
    set->callback([task_id, texts] { set_fields(*task_id, *texts); });
}

}  // namespace recorderctl
