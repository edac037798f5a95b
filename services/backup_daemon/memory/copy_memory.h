// What one task has copied to one destination, and how far it got in the files it has begun.
#pragma once

#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/standalone/store/run_record.h"

namespace services {

/// A file that is complete on a share.
struct CopiedFile {
    std::string path;           ///< on the share, below the destination's folder
    std::string day;            ///< local day of the recording, "2024-03-01"
    long long size = 0;         ///< bytes
    long long modified_ns = 0;  ///< the source's modification time when it was read
    std::string sha256;         ///< of the content, hexadecimal; "" when nobody reckoned it
    bool side_file = false;     ///< a description lies beside it
    bool removed = false;       ///< it made or makes room on a full share: not to be sent again
    bool doubted = false;       ///< its content is: to be compared with its recording
    /// The copy's modification time as the share told it; nothing when it is not known.
    std::optional<long long> share_modified_ns{};
};

/// Some of the copies of one camera and day, to be read back for all of them.
struct Sample {
    std::string folder;  ///< the day's, "Front door/2024-03-01/"; "" when there is no sample
    std::vector<CopiedFile> copies{};
};

/// A file that has been begun.
struct Checkpoint {
    std::string path;       ///< as in CopiedFile
    std::string temporary;  ///< the unfinished file on the share, below the destination's folder
    long long offset = 0;   ///< so many of its bytes are right
    std::string sha256;     ///< of those bytes; "" when nobody reckoned it
};

/// What is known of the dates on which a task has run. Days are texts; "" is none.
struct TaskDate {
    std::string trusted{};        ///< the newest that was believed
    std::string doubted_from{};   ///< the first of those that have been doubted since ...
    std::string doubted_until{};  ///< ... and the last

    bool operator==(const TaskDate&) const = default;
};

using standalone::FileAmount;

/// The memory of one task's copies on one destination. Copies belong to the destination: another
/// task that writes to the same place sees them and sends nothing again. Checkpoints, and the
/// choice of what to remove, are the task's own. Any call may throw standalone::DatabaseError.
class CopyMemory {
public:
    virtual ~CopyMemory() = default;

    /// All that follows is about this destination.
    /// @param destination its identifier (destination_memory.h)
    virtual void move_to(const std::string& destination) = 0;

    /// The destination's copies below one folder ("Front door/2024-03-01/", with the slash at the
    /// end), whichever task made them, by path; those that made room among them.
    virtual std::map<std::string, CopiedFile> copied_in(const std::string& folder) = 0;

    /// How far the task got in a file; nothing when it has not begun it.
    virtual std::optional<Checkpoint> checkpoint(const std::string& path) = 0;

    /// All files that the task has begun and not completed.
    virtual std::vector<Checkpoint> checkpoints() = 0;

    /// The files at the destination that other tasks had begun when they were deleted.
    virtual std::vector<Checkpoint> abandoned() = 0;

    /// Forgets such a file.
    virtual void drop_abandoned(const std::string& temporary) = 0;

    /// Keeps a checkpoint in the place of an earlier one of its path.
    virtual void save(const Checkpoint& made) = 0;

    /// Forgets a checkpoint; there need not be one.
    virtual void drop_checkpoint(const std::string& path) = 0;

    /// Records a complete file as the task's, not doubted and to be sampled, and drops its
    /// checkpoint, both or neither.
    virtual void record(const CopiedFile& file) = 0;

    /// The oldest day of which the task has copies on the share; "" when there is none.
    virtual std::string oldest_day() = 0;

    /// The newest day of each camera that the task has copies of on the share, "Door/2024-03-01",
    /// for those cameras whose newest one is before `day`.
    virtual std::set<std::string> newest_days(const std::string& day) = 0;

    /// The task's copies on the share of days before `day`, oldest day first, at most `limit`.
    /// @param kept days of cameras to leave out, as newest_days() has them
    virtual std::vector<CopiedFile> older_than(const std::string& day, int limit,
                                               const std::set<std::string>& kept) = 0;

    static constexpr long long ALL = std::numeric_limits<long long>::max();

    /// How much older_than() could tell of in all, counted oldest day first until it has `enough`
    /// bytes; never, for ALL.
    virtual FileAmount amount_older_than(const std::string& day, const std::set<std::string>& kept,
                                         long long enough) = 0;

    /// A copy is no longer this recorder's: it was too old and is gone from the share, or another
    /// file stands in its place.
    virtual void forget(const std::string& path) = 0;

    /// Copies are about to be removed to make room, all of them or none. From now on they count as
    /// gone: are not sent again and not listed as old.
    virtual void begin_removal(const std::vector<CopiedFile>& copies) = 0;

    /// The task's copies whose removal was begun and has not been told as done, at most `limit`.
    virtual std::vector<CopiedFile> half_removed(int limit) = 0;

    /// A copy is gone from the share to make room, or another file stands in its place; it is not
    /// to be sent again.
    virtual void mark_removed(const std::string& path) = 0;

    /// A sample of the task's copies on the share that were recorded since the last one, of one
    /// camera and day, the oldest first: one in a hundred, at random, and one at least.
    virtual Sample sample() = 0;

    /// The sample of a folder was read: none of its copies is asked for again.
    virtual void end_sample(const std::string& folder) = 0;

    /// A copy of the sample is not as it was made. It counts as spoilt until it is recorded anew,
    /// and all copies of its folder as doubted until they are. That is more than a sample:
    /// none of them is asked for in one any more.
    virtual void doubt(const std::string& path, const std::string& folder) = 0;

    /// The task's spoilt copies.
    virtual std::set<std::string> spoilt() = 0;

    /// None of them counts as spoilt any more; they stay doubted.
    virtual void accept_spoilt() = 0;

    /// What set_date() has kept of the task; nothing when it has not.
    virtual std::optional<TaskDate> date() = 0;
    virtual void set_date(const TaskDate& date) = 0;
};

}  // namespace services
