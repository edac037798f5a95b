// What the daemon and its copying processes say to each other.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/copy_job.h"

namespace services {

/// Order: name the days that a channel has recordings of.
struct ListDays {
    std::string recordings;  ///< the channel's folder
    std::string first;       ///< first day
    std::string last;        ///< last day
};

/// Order: name the recordings of a day, and what the share has of them.
struct ListDay {
    std::string recordings;
    std::string day;
    bool normal = true;
    bool alarm = true;
    std::string remote;      ///< the day's folder on the share
    bool ask_share = false;  ///< otherwise nobody looks at the share
};

/// Order: delete files, then those of the folders that are empty.
struct RemoveFiles {
    std::vector<std::string> files;
    std::vector<std::string> folders;
};

using Order = std::variant<ListDays, ListDay, CopyJob, RemoveFiles>;

/// Report: connected, waiting for orders.
struct Ready {};

/// Report: the days that were asked for, oldest first.
struct Days {
    std::vector<std::string> names;
};

/// A recording of a day.
struct DayEntry {
    std::string name;
    bool alarm = false;
    long long size = 0;
    long long modified_ns = 0;
    long long remote_size = -1;  ///< -1: not there, or nobody looked
};

/// Report: a part of a day's recordings; Done follows behind the last part.
struct Entries {
    std::vector<DayEntry> entries;
};

/// Report: so many bytes of the file are on the share.
struct At {
    long long offset = 0;
};

/// Report: so many bytes of the unfinished file are right, and how they can be known again.
struct Noted {
    long long offset = 0;
    std::string sha256;  ///< of those bytes; "" when nobody reckoned it
};

/// Report: the file is whole on the share, and has its name.
struct Copied {
    CopyResult result;
};

/// Report: the order is carried out, and this is the last of it.
struct Done {};

/// Report: the order could not be carried out. A process that reports lost or refused has ended.
struct Failed {
    FailureKind kind = FailureKind::other;
    std::string text;
};

using Report = std::variant<Ready, Days, Entries, At, Noted, Copied, Done, Failed>;

/// Most entries of one report: a packet has its limits.
inline constexpr std::size_t ENTRIES_OF_A_REPORT = 200;

std::string pack(const Order& order);
std::string pack(const Report& report);

/// Reads what pack() has written.
/// @throws std::runtime_error when it is anything else: cut off, too long, of an unknown kind
Order unpack_order(const std::string& packet);
Report unpack_report(const std::string& packet);

}  // namespace services
