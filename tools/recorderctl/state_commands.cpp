// recorderctl state: the whole state is copied, put back and checked.
#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>

#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/state_backup.h"
#include "tools/recorderctl/state_databases.h"
#include "tools/recorderctl/state_restore.h"

namespace recorderctl {

namespace {

constexpr int MOST_KEPT = 1000;

void back_up(const std::string& folder, int kept) {
    if (kept == 0) backup_state(folder);
    std::cout << (kept == 0 ? folder : backup_in_turn(folder, kept)) << '\n';
}

void restore(const std::string& folder) {
    const std::string before = restore_state(folder);
    print_row({"restored", folder});
    if (!before.empty()) print_row({"the state before it", before});
}

/// @return whether all is well with it
bool check_one(const StateDatabase& database) {
    const std::string file(database.file);
    const std::string path = standalone::state_folder() + '/' + file;
    if (!std::filesystem::exists(path)) {
        print_row({file, "-", database.needed ? "missing" : "not made yet"});
        return !database.needed;
    }
    const standalone::DatabaseHealth health = standalone::check_database(path);
    const std::string problem = problem_of(database, health);
    const bool older = health.schema < database.newest_schema;
    print_row({file, "schema " + std::to_string(health.schema),
               !problem.empty() ? problem
               : older ? "sound, older than schema " + std::to_string(database.newest_schema)
                       : "sound"});
    return problem.empty();
}

void check() {
    bool well = true;
    for (const StateDatabase& database : state_databases()) well = check_one(database) && well;
    if (!well) throw Failure("the state in " + standalone::state_folder() + " is not sound");
}

}  // namespace

void add_state_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("state", "The recorder's databases as a whole");
    group->require_subcommand(1);
    const auto folder = std::make_shared<std::string>();
    const auto kept = std::make_shared<int>(0);
    CLI::App* backup = group->add_subcommand(
        "backup", "Copy the databases into a new folder, consistently; the services may run");
    backup->add_option("FOLDER", *folder, "The new folder; with --keep, where dated ones are made")
        ->required();
    backup
        ->add_option("--keep", *kept,
                     "Make a folder named after the moment in FOLDER; keep the newest N of those")
        ->check(CLI::Range(1, MOST_KEPT))
        ->type_name("N");
    backup->callback([folder, kept] { back_up(*folder, *kept); });

    CLI::App* restore_it = group->add_subcommand(
        "restore", "Put a copy in the place of the databases; the services must not run");
    restore_it->add_option("FOLDER", *folder, "As state backup made it")->required();
    restore_it->callback([folder] { restore(*folder); });

    group->add_subcommand("check", "Check that the databases are sound and not too new")
        ->callback(check);
}

}  // namespace recorderctl
