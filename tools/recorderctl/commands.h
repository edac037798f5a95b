// The groups of recorderctl's commands; each adds its own to the command line.
#pragma once

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace recorderctl {

/// A command could not be done. what() is the one line for the user.
class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A command runs while the command line is parsed. It prints its result on standard output and
// throws Failure or another std::exception when it cannot be done.

void add_info_command(CLI::App& app);
void add_state_commands(CLI::App& app);
void add_user_commands(CLI::App& app);
void add_session_commands(CLI::App& app);
void add_config_commands(CLI::App& app);
void add_channel_commands(CLI::App& app);
void add_task_commands(CLI::App& app);
void add_backup_commands(CLI::App& app);
void add_run_commands(CLI::App& app);
void add_status_command(CLI::App& app);
void add_alert_commands(CLI::App& app);
void add_event_commands(CLI::App& app);
void add_web_commands(CLI::App& app);

}  // namespace recorderctl
