// recorderctl: sets up and looks after the state of a stand-alone recorder.
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "platform/standalone/store/complain.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/version.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/misuse.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/reading_right.h"
#include "tools/recorderctl/recorder_user.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

constexpr char NAME[] = "recorderctl";

standalone::Database open_database(const std::string& path, standalone::Migrations steps) {
    if (!std::filesystem::exists(path))
        throw Failure("no recorder state in " + standalone::state_folder() +
                      "; run recorderctl init");
    standalone::Database database(path, standalone::Database::Access::writing);
    standalone::require_current(database, path, steps);
    return database;
}

void add_init_command(CLI::App& app) {
    app.add_subcommand("init", "Make the state folder and its databases; safe to repeat")
        ->callback([] {
            standalone::make_state();
            std::cout << standalone::state_folder() << '\n';
        });
}

void add_state_option(CLI::App& app) {
    app.add_option_function<std::string>(
           "--state",
           [](const std::string& folder) { setenv("RECORDER_STATE", folder.c_str(), 1); },
           "State folder (default: environment RECORDER_STATE, else /var/lib/recorder)")
        ->type_name("DIR")
        ->trigger_on_parse();
}

int run(int count, char** arguments) {
    CLI::App app("Sets up and looks after the state of a stand-alone recorder.", NAME);
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("recorderctl ") + RECORDER_VERSION);
    // Root's commands act as the recorder's user: what they make belongs to the services, too.
    app.parse_complete_callback([] {
        become_recorder();
        require_own_state();
    });
    add_state_option(app);
    add_init_command(app);
    add_info_command(app);
    add_state_commands(app);
    add_user_commands(app);
    add_session_commands(app);
    add_config_commands(app);
    add_channel_commands(app);
    add_task_commands(app);
    add_backup_commands(app);
    add_run_commands(app);
    add_status_command(app);
    add_alert_commands(app);
    add_event_commands(app);
    add_web_commands(app);
    try {
        app.parse(count, arguments);
        flush_output();
        return EXIT_SUCCESS;
    } catch (const CLI::Success& asked) {
        const int status = app.exit(asked);
        flush_output();
        return status;
    } catch (const CLI::ParseError& error) {
        standalone::complain_of_misuse(NAME, misuse(app, error));
        return error.get_exit_code();
    }
}

}  // namespace

standalone::Database open_config() {
    return open_database(standalone::config_database_path(), standalone::config_migrations());
}

standalone::Database open_registry() {
    return open_database(standalone::registry_database_path(), standalone::registry_migrations());
}

standalone::Database open_events() {
    return open_database(standalone::event_database_path(), standalone::event_migrations());
}

}  // namespace recorderctl

int main(int count, char** arguments) {
    try {
        return recorderctl::run(count, arguments);
    } catch (const std::exception& error) {
        standalone::complain(recorderctl::NAME, error.what());
        return EXIT_FAILURE;
    }
}
