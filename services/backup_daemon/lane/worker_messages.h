// What the daemon and its copying processes say to each other.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/copy_job.h"

namespace services {

/// Order: tell the sizes that files of a folder on the share have.
struct AskSizes {
    std::string folder;
    std::vector<std::string> names;
};

/// Order: copy the open file that comes along with the order.
struct SendFile {
    CopyJob job;
    long long size = 0;  ///< bytes of the file to copy; what it has grown by since is left out
};

/// Order: delete files, then those of the folders that are empty.
struct RemoveFiles {
    std::vector<std::string> files;
    std::vector<std::string> folders;
};

using WorkerOrder = std::variant<AskSizes, SendFile, RemoveFiles>;

/// Report: connected, waiting for orders.
struct Ready {};

/// Report: the sizes of the files that were asked for, in the order of their names.
struct Sizes {
    std::vector<long long> sizes;  ///< -1: there is none
};

/// Report: so many bytes of the file are on the share.
struct At {
    long long offset = 0;
    bool begins = false;  ///< they were there before; sending begins behind them
};

/// Report: so many bytes of the unfinished file are right, and how they can be known again.
struct Noted {
    long long offset = 0;
    std::string sha256;  ///< of those bytes; "" when nobody reckoned it
};

/// Report: the file is whole on the share, and has its name.
struct Whole {
    std::string sha256;  ///< "" when nothing asked for it
};

/// Report: the order is carried out, and this is the last of it.
struct Done {};

/// Report: the order could not be carried out. A process that reports lost or refused has ended.
struct Failed {
    FailureKind kind = FailureKind::other;
    std::string text;
};

using WorkerReport = std::variant<Ready, Sizes, At, Noted, Whole, Done, Failed>;

std::string pack(const WorkerOrder& order);
std::string pack(const WorkerReport& report);

/// Reads what pack() has written.
/// @throws std::runtime_error when it is anything else: cut off, too long, of an unknown kind
WorkerOrder unpack_order(const std::string& packet);
WorkerReport unpack_report(const std::string& packet);

}  // namespace services
