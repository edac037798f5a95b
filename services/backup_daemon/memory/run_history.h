// Writes the history of runs: a row for each from before its first byte on, closed when it is over.
#pragma once

#include <string>
#include <vector>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/run_record.h"

namespace services {

/// How far a run has come, as the history has it.
struct RunAccount {
    /// Files that are kept by name.
    static constexpr std::size_t MOST_FAILURES = 100;

    standalone::RunCounts counts;
    std::vector<standalone::FailedFile> failures;  ///< the first of them, in their order
    std::string reason;  ///< what the run waits for or failed of; mostly ""
    long long seen = 0;  ///< when this was so, seconds since the epoch
};

/// How a run ended.
struct RunEnd {
    standalone::RunOutcome outcome = standalone::RunOutcome::failed;
    std::string reason;   ///< "": as it was noted; a success has none
    long long ended = 0;  ///< seconds since the epoch
};

/// A run that is not closed.
struct OpenRun {
    std::string task_id;
    long long started = 0;
    long long seen = 0;  ///< 0: it has never noted anything
};

/// The history's rows (run_record.h). A task has one open run at most, and it is the newest.
/// platform/standalone/store/run_records.h reads what is written here. Identifiers are decimal, as
/// all of tasks are. Any call may throw standalone::DatabaseError: nothing was written then.
class RunHistory {
public:
    /// @param database with deferred durability (secured_history.h has what needs more)
    explicit RunHistory(standalone::Database& database) : database_(database) {}

    /// Opens a row for a run that is about to begin, under the next number of its task. One that is
    /// open is of a run that never began, and goes.
    void open(const std::string& task_id, const std::string& task_name, standalone::RunCause cause,
              long long now);

    /// Takes back what open() has written, as the run does not begin. The next one gets its number.
    void withdraw(const std::string& task_id);

    /// Writes how far a task's newest run has come, in the place of what was noted before. The end
    /// may be written already; nothing of that is changed.
    void note(const std::string& task_id, const RunAccount& account);

    /// Closes a task's open run; no such run: nothing happens. A success becomes the task's last.
    void close(const std::string& task_id, const RunEnd& end);

    /// All that are open.
    std::vector<OpenRun> open_runs();

private:
    long long newest(const std::string& task_id);
    void add_failures(long long task, long long number,
                      const std::vector<standalone::FailedFile>& failures);

    standalone::Database& database_;
};

}  // namespace services
