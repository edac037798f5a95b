// Where a task's copies go: server, share and folder, read from the task's record.
#pragma once

#include <string>

#include "backup/task_record.h"

namespace services {

/// Where a task's copies go.
struct Destination {
    std::string server;
    int port = 0;
    std::string share;
    std::string folder;  ///< below the share, segments joined by "/"; "" for the share itself

    /// One text for all of it; two tasks with the same text write to the same place.
    std::string key() const;

    /// The same without the folder; no password is in either.
    std::string share_key() const;
};

/// Reads a task's server, port and path; "/share/a/b", "share/a/b" and "\share\a\b" are the same.
/// The share is empty when the path names none.
Destination destination_of(const TDataBackupConfig& task);

}  // namespace services
