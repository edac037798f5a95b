// The connections that the platform calls of one thread share: opened when first needed, then kept.
#include "platform/standalone/store/connections.h"

#include <optional>

#include "platform/standalone/store/state_folder.h"

namespace standalone {

namespace {

/// What a connection opened from now on waits; nothing: as databases do.
std::optional<std::chrono::milliseconds>& longest_wait() {
    thread_local std::optional<std::chrono::milliseconds> longest;
    return longest;
}

/// One connection, opened anew only when the state folder has become another one.
struct Connection {
    std::string path;
    std::optional<Database> database;

    Database& at(const std::string& wanted, Database::Access access) {
        if (!database || path != wanted) {
            database.reset();
            database.emplace(wanted, access);
            if (longest_wait()) database->limit_waiting(*longest_wait());
            path = wanted;
        }
        return *database;
    }
};

/// What a connection has read, and the number by which it tells others' changes since.
struct KnownChannels {
    long long version;
    std::vector<Channel> channels;
};

struct Connections {
    Connection config_reader;
    std::optional<KnownChannels> channels;  // as config_reader has read them
    Connection config_writer;
    Connection registry_reader;
    Connection registry_writer;
    Connection event_reader;
    Connection event_writer;
    std::optional<KeyValueStore> keys;  // released before the connection it uses
};

Connections& mine() {
    thread_local Connections connections;
    return connections;
}

/// Another number when another connection has changed the database. One that reads changes nothing.
long long version_of(Database& database) {
    Statement version = database.prepare("PRAGMA data_version");
    version.step();
    return version.integer(0);
}

}  // namespace

void limit_waiting(std::chrono::milliseconds longest) {
    longest_wait() = longest;
}

Database& config_for_reading() {
    const std::string path = config_database_path();
    if (mine().config_reader.path != path) mine().channels.reset();
    return mine().config_reader.at(path, Database::Access::reading);
}

const std::vector<Channel>& config_channels() {
    Database& database = config_for_reading();
    auto& known = mine().channels;
    const long long version = version_of(database);
    if (!known || known->version != version)
        known = KnownChannels{version, ChannelStore(database).list()};
    return known->channels;
}

Database& config_for_writing() {
    return mine().config_writer.at(config_database_path(), Database::Access::writing);
}

Database& registry_for_reading() {
    const std::string path = registry_database_path();
    // A statement keeps a closed connection alive, so the keys' one goes first.
    if (mine().registry_reader.path != path) mine().keys.reset();
    return mine().registry_reader.at(path, Database::Access::reading);
}

Database& registry_for_writing() {
    return mine().registry_writer.at(registry_database_path(), Database::Access::writing);
}

Database& events_for_reading() {
    return mine().event_reader.at(event_database_path(), Database::Access::reading);
}

Database& events_for_writing() {
    return mine().event_writer.at(event_database_path(), Database::Access::writing);
}

KeyValueStore& config_keys() {
    Database& database = registry_for_reading();
    if (!mine().keys) mine().keys.emplace(database);
    return *mine().keys;
}

}  // namespace standalone
