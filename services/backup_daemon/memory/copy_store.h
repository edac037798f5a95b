// What the backup daemon has copied where, and how far it got in the files it has begun.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"
#include "services/backup_daemon/memory/copy_memory.h"

namespace services {

/// The daemon's memory of its copies. A destination is server, port, share and folder in one text.
/// Losing the newest changes in a power cut does no harm (what is on the share is compared before
/// anything is sent), so changes need not be on disk when a call returns. Any call may throw
/// DatabaseError.
class CopyStore {
public:
    explicit CopyStore(standalone::Database& database);

    /// The copies below one folder of a destination ("Front door/2024-03-01/"), by path.
    std::map<std::string, CopiedFile> copied_in(const std::string& destination,
                                                const std::string& folder);

    std::optional<Checkpoint> checkpoint(const std::string& task_id, const std::string& destination,
                                         const std::string& path);
    std::vector<Checkpoint> checkpoints(const std::string& task_id, const std::string& destination);
    void save(const std::string& task_id, const std::string& destination, const Checkpoint& made);
    void drop_checkpoint(const std::string& task_id, const std::string& destination,
                         const std::string& path);

    /// Records a complete file and drops its checkpoint, both or neither.
    void record(const std::string& task_id, const std::string& destination, const CopiedFile& file);

    /// The oldest day of which the task has copies on the destination; "" when there is none.
    std::string oldest_day(const std::string& task_id, const std::string& destination);

    /// The task's copies of the days before `day`, oldest first, at most `limit`.
    std::vector<CopiedFile> older_than(const std::string& task_id, const std::string& destination,
                                       const std::string& day, int limit);

    /// A copy is gone from the share: because it was too old, or, with `made_room`, to make room.
    void forget(const std::string& destination, const std::string& path, bool made_room);

private:
    standalone::Database& database_;
};

}  // namespace services
