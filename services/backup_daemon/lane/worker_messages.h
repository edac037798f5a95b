// What the daemon and its copying processes say to each other.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/share.h"
#include "services/backup_daemon/copy/share_text.h"

namespace services {

/// Order: look at files of a folder on the share.
struct AskFiles {
    std::string folder;
    std::vector<std::string> names;
};

/// Order: copy the open file that comes along with the order.
struct SendFile {
    CopyJob job;
    long long size = 0;  ///< bytes of the file to copy; what it has grown by since is left out
    long long modified_ns = 0;  ///< its last write
};

/// A file that is to go if it still is what it was: a copy can have made way for somebody's file.
struct DoomedFile {
    std::string path;
    long long size = -1;                     ///< bytes; -1: it goes whatever it is
    std::optional<long long> modified_ns{};  ///< last write; nothing when it is not known
    std::string description_end{};           ///< its description ends so; "": it has none
};

/// Order: delete files, then those of the folders that are empty.
struct RemoveFiles {
    std::vector<DoomedFile> files;
    std::vector<std::string> folders;
};

/// Order: read a copy, and compare it with what was recorded of it. Where its hash is not known and
/// the open recording comes along with the order, with that one.
struct ReadBack {
    std::string path;
    long long size = 0;  ///< bytes
    std::string sha256;  ///< of its content; "" when nobody knows
};

/// Order: tell how much room there is on the share. Servers give back the room of what was removed
/// when they come to it.
struct AskRoom {
    long long awaited = 0;  ///< free bytes: told as soon as there are so many, or after 40 seconds
};

/// Order: read small texts on the share.
struct ReadTexts {
    std::vector<std::string> paths;
};

/// Order: put a text into a file on the share, in the place of what it held.
struct WriteText {
    std::string path;
    std::string temporary;  ///< in the same folder; the file appears from there
    std::string text;
};

using WorkerOrder = std::variant<AskFiles, SendFile, RemoveFiles, AskRoom, ReadTexts, WriteText,
                                 FolderClaim, ReadBack>;

/// Report: connected, waiting for orders.
struct Ready {
    long long round_trip_us = 0;  ///< what a request to the share takes, about, in microseconds
};

/// Report: the files that were asked for, in the order of their names.
struct Files {
    std::vector<FileState> files;  ///< size -1: there is none
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
    std::string sha256;               ///< "" when nothing asked for it
    long long share_modified_ns = 0;  ///< its time there, as far as the server rounds it
};

/// Report: the order is carried out, and this is the last of it.
struct Done {};

/// What became of a file that was to go. A description goes behind its copy and never without it.
enum class Fate {
    gone,                ///< its description too
    description_stayed,  ///< it is gone; what lies at its description's place is another file
    stayed,              ///< what lies there is another file
    missing,             ///< there was none; its description is gone
};

/// Report: the files were removed as far as they were what the order said, in the order of theirs.
struct Removed {
    std::vector<Fate> files;
};

/// Report: the room that was asked for; nothing when the server does not tell.
struct Room {
    std::optional<ShareRoom> room;
};

/// Report: the texts that were asked for, in the order of their paths.
struct Contents {
    std::vector<std::optional<std::string>> texts;  ///< as read_text() gives them
};

/// What a copy is found to be.
enum class Condition { as_made, missing, other_size, other_content };

/// Report: the copy was read back, as far as there was anything to compare it with.
struct CopySeen {
    Condition condition = Condition::as_made;
};

/// Report: the order could not be carried out. A process that reports lost or refused has ended.
struct Failed {
    FailureKind kind = FailureKind::other;
    std::string text;
};

using WorkerReport =
    std::variant<Ready, Files, At, Noted, Whole, Removed, Failed, Room, Contents, Done, CopySeen>;

std::string pack(const WorkerOrder& order);
std::string pack(const WorkerReport& report);

/// Reads what pack() has written.
/// @throws std::runtime_error when it is anything else: cut off, too long, of an unknown kind
WorkerOrder unpack_order(const std::string& packet);
WorkerReport unpack_report(const std::string& packet);

}  // namespace services
