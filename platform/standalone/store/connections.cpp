// The connections that the platform calls of one thread share: opened when first needed, then kept.
#include "platform/standalone/store/connections.h"

#include <optional>
#include <utility>

#include "platform/standalone/store/state_folder.h"

namespace standalone {

namespace {

/// What a connection opened from now on waits; nothing: as databases do.
std::optional<std::chrono::milliseconds>& chosen_wait() {
    thread_local std::optional<std::chrono::milliseconds> longest;
    return longest;
}

/// One connection, opened anew only when the state folder has become another one. Who reads first
/// and writes then has one, too: to open another costs more than most of what is asked of it.
struct Connection {
    std::string path;
    Database::Access access = Database::Access::reading;
    std::optional<Database> database;

    Database& at(const std::string& wanted, Database::Access wanted_access) {
        if (!database || path != wanted) {
            database.reset();
            database.emplace(wanted, wanted_access);
            if (chosen_wait()) database->limit_waiting(*chosen_wait());
            path = wanted;
            access = wanted_access;
        }
        if (wanted_access == Database::Access::writing && access == Database::Access::reading) {
            database->begin_to_write(Database::Durability::full);
            access = Database::Access::writing;
        }
        return *database;
    }
};

/// What a connection has read.
struct KnownChannels {
    Database::Version version;
    std::vector<Channel> channels;
};

struct Connections {
    Connection config;
    std::optional<KnownChannels> channels;  // as config has read them
    Connection registry;
    Connection events;
    std::optional<EventStore> log;      // released before the connection it uses
    std::optional<KeyValueStore> keys;  // released before the connection it uses
};

Connections& mine() {
    thread_local Connections connections;
    return connections;
}

Database& config(Database::Access access) {
    const std::string path = config_database_path();
    if (mine().config.path != path) mine().channels.reset();
    return mine().config.at(path, access);
}

Database& registry(Database::Access access) {
    const std::string path = registry_database_path();
    // A statement keeps a closed connection alive, so the keys' one goes first.
    if (mine().registry.path != path) mine().keys.reset();
    return mine().registry.at(path, access);
}

Database& events(Database::Access access) {
    const std::string path = event_database_path();
    if (mine().events.path != path) mine().log.reset();
    return mine().events.at(path, access);
}

}  // namespace

void limit_waiting(std::chrono::milliseconds longest) {
    chosen_wait() = longest;
}

std::chrono::milliseconds longest_wait() {
    return chosen_wait().value_or(Database::USUAL_WAIT);
}

Database& config_for_reading() {
    return config(Database::Access::reading);
}

const std::vector<Channel>& config_channels() {
    Database& database = config_for_reading();
    auto& known = mine().channels;
    const Database::Version version = database.version();
    if (!known || known->version != version)
        known = KnownChannels{version, ChannelStore(database).list()};
    return known->channels;
}

Database& config_for_writing() {
    return config(Database::Access::writing);
}

Database& registry_for_reading() {
    return registry(Database::Access::reading);
}

Database& registry_for_writing() {
    return registry(Database::Access::writing);
}

Database& events_for_reading() {
    return events(Database::Access::reading);
}

Database& events_for_writing() {
    return events(Database::Access::writing);
}

EventStore& event_log() {
    Database& database = events_for_writing();
    if (!mine().log) mine().log.emplace(database);
    return *mine().log;
}

bool event_log_is_open() {
    return mine().log && mine().events.path == event_database_path();
}

KeyValueStore& config_keys() {
    Database& database = registry_for_reading();
    if (!mine().keys) mine().keys.emplace(database);
    return *mine().keys;
}

}  // namespace standalone
