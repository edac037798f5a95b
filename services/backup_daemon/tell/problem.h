// What somebody must look after: a run that failed, a task that is overdue, a share, its copies.
#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/standalone/store/alert_names.h"

namespace services {

using standalone::ProblemKind;

/// There is one problem of a kind and a subject at most.
struct ProblemKey {
    ProblemKind kind = ProblemKind::run_failed;
    std::string subject;  ///< a task's identifier or, of a share, `//server:port/share`

    bool operator<(const ProblemKey& other) const {
        return std::tie(kind, subject) < std::tie(other.kind, other.subject);
    }
};

/// A task that a problem is of. Times are seconds since the epoch, here and below.
struct ConcernedTask {
    std::string id;
    std::string name;
    std::optional<long long> last_success;  ///< nothing: it has never succeeded
};

/// What may be a problem, as it is at one moment.
struct Problem {
    ProblemKey key;
    std::vector<ConcernedTask> tasks;  ///< the task; all that copy to the share
    bool is_there = false;             ///< otherwise what follows says nothing
    long long since = 0;               ///< of a task that is not overdue yet: when it will be, or 0
    std::string detail{};              ///< in words: why the run failed, how much room; may be ""
    long long run = 0;                 ///< number of the newest run that failed; 0: not known
};

}  // namespace services
