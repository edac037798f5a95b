// What a run and its lanes say to each other.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/standalone/store/folder_stamp.h"
#include "services/backup_daemon/copy/marker.h"
#include "services/backup_daemon/lane/worker_messages.h"
#include "services/backup_daemon/memory/destination_memory.h"

namespace services {

/// Order: find out where copies go, and mark that place as this recorder's.
struct FindPlace {
    std::string folder;    ///< the task's, below the share; may be ""
    std::string recorder;  ///< this recorder's identity
    std::string task_id;
    KnownPlace known;
    bool only_look = false;  ///< nothing may be made on the share
};

/// Order: name the days that a channel has recordings of.
struct ListDays {
    std::string recordings;  ///< the channel's folder
    std::string first;       ///< first day
    std::string last;        ///< last day
};

/// A channel's folder, as it was when the run began.
struct ChannelFolder {
    std::string recordings;  ///< its path
    std::string disk;        ///< as Days has it
};

/// A day that may turn out to be empty, or to be so still.
struct DayBeyond {
    std::size_t folder = 0;  ///< its channel's, a place in ListDay::folders
    std::string day;
    /// Of the day's folder when it was found empty before; one that tells nothing: it was not.
    standalone::FolderStamp empty{};
};

/// Order: name the recordings of a day, and what the share has of them. Where the day's folder has
/// none, also see how many of the days beyond, one after the other, are empty.
struct ListDay {
    std::string recordings;
    std::string day;
    bool normal = true;
    bool alarm = true;
    std::string remote;      ///< the day's folder on the share
    bool ask_share = false;  ///< otherwise nobody looks at the share
    std::vector<DayBeyond> beyond{};
    /// Of all channels: there may be thousands of days beyond, and each has one of a few folders.
    std::shared_ptr<const std::vector<ChannelFolder>> folders{};
    standalone::Moment empty_since{};  ///< before which no stamp of theirs was taken
};

/// Order: see whether a copy that was made earlier still is what it was.
struct ReadCopy {
    ReadBack copy;
    // Where its hash is not known, the recording tells what it should be, if it still has the size
    // and the time that are recorded.
    std::string recordings;     ///< the channel's folder; "": nobody knows of a recording
    std::string source;         ///< its path below it
    long long modified_ns = 0;  ///< its time as recorded
};

using Order =
    std::variant<ListDays, ListDay, CopyJob, RemoveFiles, AskRoom, FindPlace, WriteText, ReadCopy>;

/// Report: where copies go.
struct FoundPlace {
    std::string below;    ///< folder of this recorder's own, in the task's; "": the task's itself
    std::string id;       ///< the destination's
    bool marked = false;  ///< our marker is there
    bool is_new = false;  ///< since just now
    CameraFolders cameras{};  ///< that are told of beside it
};

/// Report: the days that were asked for, oldest first.
struct Days {
    std::vector<std::string> names;
    std::string newest{};  ///< that the channel has recordings of, asked for or not; "": none
    std::string disk{};    ///< which disk's which folder it is; another text when it is another one
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
    std::string disk{};  ///< of a day without any: as Days has it, if the day's folder is there
    /// Of a day without any: so many of those beyond have a folder on its channel's disk with
    /// nothing in it. Fewer than there are when looking at them has taken a while.
    std::vector<standalone::FolderStamp> empty{};
    standalone::Moment looked_at{};  ///< before the first of these stamps was taken
};

/// What came of a copy.
struct CopyResult {
    long long size = 0;         ///< bytes of the copy: the source's size when it was opened
    long long modified_ns = 0;  ///< the source's modification time then
    std::string sha256;         ///< "" when nothing asked for it
    /// The copy's modification time as the share told it; nothing when it is not known.
    std::optional<long long> share_modified_ns{};
};

/// Report: the file is whole on the share, and has its name.
struct Copied {
    CopyResult result;
};

using Report = std::variant<Ready, Days, Entries, At, Noted, Copied, Removed, Room, Done, Failed,
                            FoundPlace, CopySeen>;

}  // namespace services
