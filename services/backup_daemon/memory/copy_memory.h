// What one task has copied to one destination, and how far it got in the files it has begun.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace services {

/// A file that is complete on a share.
struct CopiedFile {
    std::string path;           ///< on the share, below the destination's folder
    std::string day;            ///< local day of the recording, "2024-03-01"
    long long size = 0;         ///< bytes
    long long modified_ns = 0;  ///< the source's modification time when it was read
    std::string sha256;         ///< of the content, hexadecimal; "" when nobody reckoned it
    bool side_file = false;     ///< a description lies beside it
    bool removed = false;       ///< it made room on a full share, and is not to be sent again
    /// The copy's modification time as the share told it; nothing when it is not known.
    std::optional<long long> share_modified_ns{};
};

/// A file that has been begun.
struct Checkpoint {
    std::string path;       ///< as in CopiedFile
    std::string temporary;  ///< the unfinished file on the share, below the destination's folder
    long long offset = 0;   ///< so many of its bytes are right
    std::string sha256;     ///< of those bytes; "" when nobody reckoned it
};

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

    /// Keeps a checkpoint in the place of an earlier one of its path. What is kept of a task that
    /// was deleted meanwhile does not stay (memory_database.h).
    virtual void save(const Checkpoint& made) = 0;

    /// Forgets a checkpoint; there need not be one.
    virtual void drop_checkpoint(const std::string& path) = 0;

    /// Records a complete file as the task's and drops its checkpoint, both or neither.
    virtual void record(const CopiedFile& file) = 0;

    /// The oldest day of which the task has copies on the share; "" when there is none.
    virtual std::string oldest_day() = 0;

    /// The task's copies on the share of days before `day`, oldest day first, at most `limit`.
    virtual std::vector<CopiedFile> older_than(const std::string& day, int limit) = 0;

    /// A copy is gone from the share because it was too old.
    virtual void forget(const std::string& path) = 0;

    /// A copy is gone from the share to make room; it is not to be sent again.
    virtual void mark_removed(const std::string& path) = 0;
};

}  // namespace services
