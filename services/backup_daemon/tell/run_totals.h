// What the runs of each task come to since the daemon began, counted from the history.
#pragma once

#include <array>
#include <map>
#include <string>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/run_record.h"

namespace services {

/// What a task's runs come to, the one that goes on among them.
struct RunTotal {
    std::array<long long, 4> runs{};  ///< that have ended, by RunOutcome
    standalone::FileAmount sent;
    long long files_failed = 0;

    bool operator==(const RunTotal&) const = default;
};

/// Counts what is written into the history while it lives, so nothing of it ever grows smaller. The
/// history itself is pruned: its own sums do.
class RunTotals {
public:
    /// Whatever the history has by now is not counted.
    /// @param memory the daemon's own database; outlives this
    /// @throws standalone::DatabaseError
    explicit RunTotals(standalone::Database& memory);

    /// As it is now, by the identifiers of all tasks that have run or are expected to.
    /// @throws standalone::DatabaseError; the next call tells all of it
    std::map<long long, RunTotal> look();

private:
    /// A task's newest run may still be written, so it is never among those that are summed up.
    struct Known {
        long long summed_up_to = 0;  ///< number of the last run that is
        RunTotal total;
    };
    static RunTotal look_at(standalone::Statement& runs, Known& known);

    standalone::Database& memory_;
    std::map<long long, Known> known_;
};

}  // namespace services
