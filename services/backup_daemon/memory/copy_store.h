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
class CopyStore : public CopyMemory {
public:
    CopyStore(standalone::Database& database, std::string task_id, std::string destination);

    std::map<std::string, CopiedFile> copied_in(const std::string& folder) override;
    std::optional<Checkpoint> checkpoint(const std::string& path) override;
    std::vector<Checkpoint> checkpoints() override;
    void save(const Checkpoint& made) override;
    void drop_checkpoint(const std::string& path) override;
    void record(const CopiedFile& file) override;
    std::string oldest_day() override;
    std::vector<CopiedFile> older_than(const std::string& day, int limit) override;
    void forget(const std::string& path) override;
    void mark_removed(const std::string& path) override;

private:
    void change(const char* sql, const std::string& path);

    standalone::Database& database_;
    std::string task_id_;
    std::string destination_;
};

}  // namespace services
