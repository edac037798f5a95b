// recorderctl info: which recorder this is.
#include <CLI/CLI.hpp>
#include <memory>

#include "platform/standalone/store/recorder_identity.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/version.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

void print_info(bool json) {
    standalone::Database registry = open_registry();
    const std::string identity = standalone::recorder_identity(registry);
    const std::string state = standalone::state_folder();
    if (json) {
        JsonLine line;
        line.add("identity", identity).add("version", std::string(RECORDER_VERSION));
        line.add("state", state).print();
        return;
    }
    print_row({"identity", identity});
    print_row({"version", RECORDER_VERSION});
    print_row({"state", state});
}

}  // namespace

void add_info_command(CLI::App& app) {
    const auto json = std::make_shared<bool>(false);
    CLI::App* info = app.add_subcommand("info", "Show the recorder's identity, version and state");
    info->add_flag("--json", *json, "One JSON object");
    info->callback([json] { print_info(*json); });
}

}  // namespace recorderctl
