// The pieces of work that a run consists of, each carried out by one order to a lane.
#pragma once

#include <variant>
#include <vector>

#include "services/backup_daemon/memory/copy_memory.h"
#include "services/backup_daemon/run/run_goal.h"
#include "services/backup_daemon/run/run_names.h"
#include "services/backup_daemon/run/run_tally.h"

namespace services {

/// Where do copies go?
struct SeekPlace {};

/// Which folders cameras have is told beside the marker.
struct TellCameras {
    WriteText order;
};

/// Which days has a channel recordings of?
struct FindDays {
    const SelectedChannel* channel = nullptr;
};

/// What is there to copy of a day? Asked once to measure, and again, with a look at the share,
/// right before its files are copied. Where a day has no recordings, those beyond it that are empty
/// are passed over by the same order.
struct LookAtDay {
    std::size_t day = 0;    ///< place among the plan's days
    std::size_t end = 0;    ///< behind the last day that is this work's to look at
    bool to_copy = false;   ///< otherwise to measure, which no look at the share is for
    std::size_t asked = 0;  ///< days beyond that the order is for
    // As far as it has been told, as Entries has it.
    std::vector<DayEntry> found{};
    std::string disk{};
    std::vector<standalone::FolderStamp> empty{};

    /// The order is to be carried out again.
    void forget() {
        found.clear();
        empty.clear();
    }
};

/// A day has no recordings, and its folder has gone or lies elsewhere: has its channel any?
/// Otherwise the disk may not be there any more.
struct SeekRecordings {
    std::size_t day = 0;  ///< place among the plan's days
};

/// A recording's copy.
struct CopyFile {
    std::size_t day = 0;    ///< place among the plan's days
    std::string path;       ///< of the copy, below the destination's folder
    std::string temporary;  ///< where it grows, below that folder
    CopyJob job;
    FileCount count;
    int doubts = 0;  ///< how often it found the share full where room was told, or nothing
    bool others_went = false;  ///< unfinished files went from the share while it was sent
};

/// Is a copy that was made earlier still what it was?
struct CheckCopy {
    std::string path;    ///< below the destination's folder
    std::string folder;  ///< of its camera and day, as Sample has it
    ReadCopy order;
};

/// Files that go from the share.
struct RemoveCopies {
    enum class Why {
        room,
        retention,
        leftover,   ///< a temporary file of the task's
        abandoned,  ///< one of a deleted task's
    };
    Why why = Why::retention;
    /// Of a temporary file only the path counts: its copy's or, when it is abandoned, its own.
    std::vector<CopiedFile> copies;
    RemoveFiles order;

    bool is_of_temporary_files() const { return why == Why::leftover || why == Why::abandoned; }
};

/// Is there room on the share for all that was measured?
struct WeighRun {};

/// A file has found the share full: can there be room for it at all? It waits in the plan.
struct SeekRoom {
    std::size_t day = 0;   ///< the file's, a place among the plan's days
    std::string path;      ///< its copy's
    long long needed = 0;  ///< bytes of it that are not on the share yet
};

/// Older copies have gone for a file: has the share more room for it?
struct ProveRoom {
    std::string path;           ///< of the file's copy
    long long free_before = 0;  ///< bytes
    long long removed = 0;      ///< bytes of the copies that have gone
};

/// How much room has the share left at the end of the run?
struct NoteRoom {};

struct Work {
    std::variant<SeekPlace, TellCameras, FindDays, LookAtDay, CopyFile, RemoveCopies, WeighRun,
                 SeekRoom, ProveRoom, SeekRecordings, CheckCopy, NoteRoom>
        what;
    int attempts = 0;  ///< that ended in a failure nobody can tell the meaning of, or of a check
};

/// Whether it is a day's listing.
bool is_listing(const Work& work);

/// Whether it is about what a deleted task has left.
bool is_abandoned(const Work& work);

/// What is to be done about a recording.
enum class Need {
    nothing,
    comparison,  ///< with its doubted copy; it is sent if that is not equal
    copy,        ///< it has to be sent, as far as can be told
};

/// @param copy        what is recorded of it; null when nothing is
/// @param asked_share the entry's state on the share is known
Need need_of(const RunGoal& goal, const DayEntry& entry, const CopiedFile* copy, bool asked_share);

/// Takes out of a day's recordings those that cannot be copied as well: their copy or its
/// description would have a name that one before them has, or has on servers that do not tell upper
/// case from lower.
std::vector<DayEntry> take_doubles(const RunGoal& goal, const ChannelDay& where,
                                   std::vector<DayEntry>& entries);

/// @param entry its state on the share is known
/// @param copy  what is recorded of an earlier copy; null when nothing is
CopyFile copy_work(const RunGoal& goal, const ShareNames& names, const ChannelDay& where,
                   const DayEntry& entry, const CopiedFile* copy);

/// @param folder of its camera and day, as Sample has it
CheckCopy check_work(const RunGoal& goal, const ShareNames& names, const CopiedFile& copy,
                     const std::string& folder);

/// Copies with their descriptions, and the folders that may be empty then.
RemoveCopies removal_work(RemoveCopies::Why why, std::vector<CopiedFile> copies,
                          const ShareNames& names);

/// A temporary file that nothing will continue, and where copies are described its description's.
RemoveCopies leftover_work(const RunGoal& goal, const ShareNames& names,
                           const Checkpoint& checkpoint);

/// A deleted task's temporary file, and its description's if there is one.
RemoveCopies abandoned_work(const ShareNames& names, const Checkpoint& checkpoint);

}  // namespace services
