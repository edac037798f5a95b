// The folder that holds all of the stand-alone recorder's state.
#include "platform/standalone/store/state_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "platform/standalone/store/schema.h"

namespace standalone {

namespace {

constexpr char CONFIG[] = "/config.db";
constexpr char REGISTRY[] = "/registry.db";
constexpr char EVENTS[] = "/events.db";
constexpr char EVENT_SOCKET[] = "/events.socket";
constexpr char REGISTRY_ANSWERS[] = "/registry.answers";
constexpr char RECORDING_INDEX[] = "/recordings.index";

/// A folder that is in use for something else keeps its mode: it is refused, not locked up.
bool may_be_made_private(const std::string& folder) {
    return std::filesystem::is_empty(folder) || std::filesystem::exists(config_database_path());
}

void make_private_folder(const std::string& folder) {
    std::filesystem::create_directories(std::filesystem::path(folder).parent_path());
    if (mkdir(folder.c_str(), 0700) == 0) return;
    struct stat found {};
    if (stat(folder.c_str(), &found) != 0 || !S_ISDIR(found.st_mode))
        throw std::runtime_error("cannot make the state folder " + folder);
    if (found.st_uid == geteuid() && (found.st_mode & 0077) == 0) return;
    if (found.st_uid != geteuid() || !may_be_made_private(folder) ||
        chmod(folder.c_str(), 0700) != 0)
        throw std::runtime_error("the folder " + folder +
                                 " is open to other users; give it mode 0700 first");
}

}  // namespace

std::string state_folder() {
    const char* chosen = secure_getenv("RECORDER_STATE");
    return chosen != nullptr && *chosen != '\0' ? chosen : DEFAULT_STATE_FOLDER;
}

std::string config_database_path() {
    return state_folder() + CONFIG;
}

std::string registry_database_path() {
    return state_folder() + REGISTRY;
}

std::string event_database_path() {
    return state_folder() + EVENTS;
}

std::string event_socket_path() {
    return state_folder() + EVENT_SOCKET;
}

std::string registry_answers_path() {
    return state_folder() + REGISTRY_ANSWERS;
}

std::string recording_index_path() {
    return state_folder() + RECORDING_INDEX;
}

void migrate_databases(const std::string& folder) {
    migrate(folder + CONFIG, config_migrations());
    migrate(folder + REGISTRY, registry_migrations(), Journal::rollback);
    migrate(folder + EVENTS, event_migrations());
}

void make_state() {
    make_private_folder(state_folder());
    migrate_databases(state_folder());
}

}  // namespace standalone
