// The folder that holds all of the stand-alone recorder's state.
#pragma once

#include <string>

namespace standalone {

inline constexpr char DEFAULT_STATE_FOLDER[] = "/var/lib/recorder";

/// The folder: environment RECORDER_STATE, else the default. A set-user-ID program started by
/// another user ignores the environment (secure_getenv(3)): who may start it must not choose whose
/// sessions it believes.
std::string state_folder();

/// Path of the configuration database: tasks, queue, channels.
std::string config_database_path();

/// Path of the registry: keys, users, sessions.
std::string registry_database_path();

/// Path of the event database.
std::string event_database_path();

/// Path of the socket on which the log service takes events (docs/formats.md, "Event letters").
std::string event_socket_path();

/// Path of the registry's answers that are kept, which may be missing at any time.
std::string registry_answers_path();

/// Path of the index of the channels' recordings, which may be missing at any time.
std::string recording_index_path();

/// Makes these databases in a folder (mode 0600), or brings them up to the newest schema.
/// @throws std::runtime_error with one line for the user
void migrate_databases(const std::string& folder);

/// Makes the folder (mode 0700) and the databases (mode 0600), or brings them up to the newest
/// schema. Safe to repeat.
/// @throws std::runtime_error with one line for the user
void make_state();

}  // namespace standalone
