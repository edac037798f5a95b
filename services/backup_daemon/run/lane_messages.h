// What a run and its lanes say to each other.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "services/backup_daemon/lane/worker_messages.h"

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

using Order = std::variant<ListDays, ListDay, CopyJob, RemoveFiles, AskRoom>;

/// Report: the days that were asked for, oldest first.
struct Days {
    std::vector<std::string> names;
    std::string newest{};  ///< that the channel has recordings of, asked for or not; "": none
};

/// A recording of a day.
struct DayEntry {
    std::string name;
    bool alarm = false;
    long long size = 0;
    long long modified_ns = 0;
    FileState remote{.size = -1};  ///< size -1: not there, or nobody looked
};

/// Report: a day's recordings, or a part of them; Done follows behind the last part.
struct Entries {
    std::vector<DayEntry> entries;
};

/// What came of a copy.
struct CopyResult {
    long long size = 0;         ///< bytes of the copy: the source's size when it was opened
    long long modified_ns = 0;  ///< the source's modification time then
    std::string sha256;         ///< "" when nothing asked for it
};

/// Report: the file is whole on the share, and has its name.
struct Copied {
    CopyResult result;
};

/// Report: all that was asked for has been told.
struct Done {};

using Report = std::variant<Ready, Days, Entries, At, Noted, Copied, Removed, Room, Done, Failed>;

}  // namespace services
