// Runs a service's body with the checks and the error line that all services share.
#include "services/service_main.h"

#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "platform/service_addresses.h"
#include "platform/standalone/store/complain.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/version.h"
#include "services/listening_sockets.h"

namespace services {
namespace {

// Who connects without pause has systemd start the service twelve times a minute and no more.
constexpr std::chrono::seconds TURN_AWAY_FOR(5);

void require_state_folder() {
    const std::string folder = standalone::state_folder();
    std::error_code ignored;
    if (!std::filesystem::is_directory(folder, ignored))
        throw std::runtime_error("there is no state folder " + folder +
                                 " (make one with: recorderctl init)");
}

/// The exit status when the arguments ask for no more than words, or nobody knows them.
std::optional<int> answer_to(CLI::App& arguments, int argc, char** argv) {
    try {
        arguments.parse(argc, argv);
        return {};
    } catch (const CLI::Success& asked) {
        return arguments.exit(asked);
    } catch (const CLI::ParseError& error) {
        standalone::complain_of_misuse(arguments.get_name(), error.what());
        return error.get_exit_code();
    }
}

/// Each sets what is wanted to a use with its value. They exclude each other.
void add_uses(CLI::App& arguments, const std::vector<OtherUse>& uses,
              std::function<void()>& wanted) {
    std::vector<CLI::Option*> added;
    for (const OtherUse& use : uses) {
        CLI::Option* option = arguments.add_option_function<std::string>(
            use.option, [&](const std::string& value) { wanted = [&, value] { use.run(value); }; },
            use.help);
        option->type_name(use.value);
        for (CLI::Option* other : added) option->excludes(other);
        added.push_back(option);
    }
}

}  // namespace

int service_main(const std::string& name, const std::string& description, int argc, char** argv,
                 const std::function<void()>& serve, const std::vector<OtherUse>& others) {
    CLI::App arguments(description, name);
    std::function<void()> wanted = serve;
    add_uses(arguments, others, wanted);
    arguments.set_version_flag("--version", name + ' ' + RECORDER_VERSION);
    if (const auto status = answer_to(arguments, argc, argv)) return *status;
    umask(S_IRWXG | S_IRWXO);
    try {
        require_state_folder();
        wanted();
        return 0;
    } catch (const standalone::NewerDatabase& error) {
        standalone::complain(name, error.what());
        ListeningSockets().turn_away(TURN_AWAY_FOR);
        return NOT_TO_BE_REPEATED;
    } catch (const std::exception& error) {
        standalone::complain(name, error.what());
        return 1;
    }
}

std::string place_of(std::initializer_list<int> ports) {
    std::string numbers;
    std::size_t left = ports.size();
    for (const int port : ports) {
        numbers += std::to_string(port);
        if (--left > 0) numbers += left == 1 ? " and " : ", ";
    }
    return LOOPBACK + std::string(ports.size() == 1 ? ", port " : ", ports ") + numbers;
}

void announce(const std::string& line) {
    std::cout << line << std::endl;
}

}  // namespace services
