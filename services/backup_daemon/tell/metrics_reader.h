// Reads from the databases what monitoring systems are told of the daemon.
#pragma once

#include <list>
#include <set>
#include <string>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"
#include "services/backup_daemon/tell/metrics.h"

namespace services {

class MetricsReader {
public:
    /// What runs have done is counted from now on (run_totals.h).
    /// @param memory the daemon's own database; outlives the reader
    /// @throws standalone::DatabaseError
    explicit MetricsReader(standalone::Database& memory) : memory_(memory), totals_(memory) {}

    /// All that the databases tell; of runs that go on they tell nothing.
    /// @param tasks  all that are stored: nothing is told of others
    /// @param shares of which the room is told, by the names that table share_room has for them
    /// @param now    seconds since the epoch
    /// @throws standalone::DatabaseError
    Metrics read(const std::list<TDataBackupConfig>& tasks, const std::set<std::string>& shares,
                 long long now);

private:
    std::vector<TaskMetrics> tasks(const std::list<TDataBackupConfig>& stored, long long now);
    std::vector<ShareMetrics> shares(const std::set<std::string>& wanted);
    long long count(const char* table);

    standalone::Database& memory_;
    RunTotals totals_;
};

}  // namespace services
