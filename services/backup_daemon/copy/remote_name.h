// Names on the share: where a task's copies go, and what an SMB server takes as a name.
#pragma once

#include <string>
#include <string_view>

#include "backup/task_record.h"

namespace services {

/// A text as one segment of a path that every SMB server takes: no \ / : * ? " < > | and control
/// characters, no device names (CON, LPT1, ...), no blank or dot at the end, at most 200 bytes of
/// valid UTF-8, never empty. What cannot stand becomes "_". A safe name stays as it is.
std::string safe_name(std::string_view name);

/// Where a task's copies go.
struct Destination {
    std::string server;
    int port = 0;
    std::string share;
    std::string folder;  ///< below the share, segments joined by "/"; "" for the share itself

    /// One text for all of it; two tasks with the same text write to the same place.
    std::string key() const;
};

/// Reads a task's server, port and path; "/share/a/b", "share/a/b" and "\share\a\b" are the same.
/// The share is empty when the path names none.
Destination destination_of(const TDataBackupConfig& task);

/// Joins two paths; either may be empty.
std::string join_path(const std::string& one, const std::string& other);

/// The folder of a path, "" when it has none.
std::string folder_of(const std::string& path);

}  // namespace services
