// What is kept of a backup run when it is over, and of a task's runs together.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace standalone {

/// Why a run began. The numbers are stored.
enum class RunCause {
    schedule = 0,  ///< its task came due
    hand = 1,      ///< somebody has started its task
    missed = 2,    ///< its task had come due when nobody was there to start it
    resumed = 3,   ///< the run before was cut off, and this one goes on with it
};

/// How a run can end. The numbers are stored.
enum class RunOutcome {
    success = 0,
    failed = 1,
    cancelled = 2,
    interrupted = 3,  ///< could not go on then, and was to be taken up again
};

/// "schedule", "by hand", "missed", "resumed".
std::string_view cause_text(RunCause cause);

/// "success", "failed", "cancelled", "interrupted".
std::string_view outcome_text(RunOutcome outcome);

/// So many files, and their bytes.
struct FileAmount {
    long long files = 0;
    long long bytes = 0;

    bool operator==(const FileAmount&) const = default;
};

/// What a run itself has done; what the run that it goes on with had done is not in it. Of a run
/// that has come to its end, the planned files are the sent and the failed ones.
struct RunCounts {
    FileAmount planned;  ///< files that were to be sent, as far as they were known
    FileAmount sent;     ///< files completed by sending; all bytes that were sent, some twice
    FileAmount kept;     ///< files that stood on the share already, as they should
    FileAmount failed;   ///< files, days or folders that were given up
    FileAmount removed;  ///< copies that had to go, for their age or to make room
    double rate = 0;     ///< bytes per second that were sent, on the average of the whole run

    bool operator==(const RunCounts&) const = default;
};

/// A file that could not be copied.
struct FailedFile {
    std::string file;  ///< its copy, below the destination's folder; "": a folder, a day, a camera
    std::string reason;  ///< in words; names what it is about

    bool operator==(const FailedFile&) const = default;
};

/// A run as it is kept. Times are seconds since the epoch.
struct RunRecord {
    std::string task_id;
    long long number = 0;   ///< of the task's runs, from 1 on; none is given twice
    std::string task_name;  ///< as it was when the run began
    RunCause cause = RunCause::hand;
    long long started = 0;
    long long seen = 0;                 ///< when its counts were noted last; 0: never
    std::optional<long long> ended;     ///< nothing while it goes on
    std::optional<RunOutcome> outcome;  ///< the same
    std::string reason;                 ///< why it ended so, or what it waits for; mostly ""
    RunCounts counts;
};

/// How a task is, whatever has been pruned of its runs. Times are seconds since the epoch.
struct TaskHealth {
    long long first_run = 1;                ///< those before are of a task that is gone
    long long last_success = 0;             ///< number of the run; 0: none, or before the history
    std::optional<long long> success_time;  ///< when it ended; nothing: there was no success
    std::string success_goal;               ///< what it was a success of (task_goal.h); "": unknown
    std::optional<long long> overdue_from;  ///< nothing: it is not expected to run
    std::optional<long long> late_from;     ///< its success is too old then; nothing: there is none
    std::optional<long long> first_due;     ///< first time that its schedule came, or comes, due
    std::string rule;                       ///< the schedule that `first_due` is of

    bool operator==(const TaskHealth&) const = default;
};

}  // namespace standalone
