// Reads what the backup daemon keeps of runs, for all who tell people of them.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/run_record.h"

namespace standalone {

/// Which runs are asked for.
struct RunFilter {
    std::string task_id{};  ///< "": of all tasks, deleted ones among them
    bool only_failed = false;
    std::optional<int> most{};  ///< the newest so many; nothing: all
};

/// The runs in the daemon's own database (backupd.db). It is the daemon's: only it writes there,
/// and its schema is for the caller to look at before. Identifiers of tasks are decimal; one that
/// is not has no runs. Any call may throw DatabaseError.
class RunRecords {
public:
    explicit RunRecords(Database& database) : database_(database) {}

    /// Hands over one run after the other, the newest first: those of one task by their numbers,
    /// those of all by the time they began, then by task.
    void list(const RunFilter& filter, const std::function<void(const RunRecord&)>& take);

    /// A task's newest runs, the newest first.
    /// @param before only those with a smaller number; 0: all
    /// @param most   at most so many
    std::vector<RunRecord> newest_before(const std::string& task_id, long long before, int most);

    /// How fast a run was: seconds since the epoch and bytes per second, oldest first. Nothing is
    /// kept of runs that ended long ago.
    std::vector<std::pair<long long, double>> rates(const RunRecord& run);

    /// One run; nothing when it is not kept.
    std::optional<RunRecord> find(const std::string& task_id, long long number);

    /// A task's newest run; nothing when it has never run.
    std::optional<RunRecord> newest(const std::string& task_id);

    /// The same of several tasks, by task, with one statement.
    std::map<std::string, RunRecord> newest_of(const std::vector<std::string>& task_ids);

    /// Of several tasks, by task, the newest run that has come to its end by itself, as success or
    /// failed; with one statement.
    std::map<std::string, RunRecord> newest_whole_of(const std::vector<std::string>& task_ids);

    /// The health of all tasks that have one, by task.
    std::map<std::string, TaskHealth> all_health();

    /// The first files that a run could not copy, in their order.
    std::vector<FailedFile> failures(const RunRecord& run);

    /// The tasks of which the last success has found nothing to copy or to keep, though an earlier
    /// run of the same goal had.
    std::set<std::string> lost_sight();

    /// How a task is; nothing of one that the daemon has not seen yet.
    std::optional<TaskHealth> health(const std::string& task_id);

    /// When each task's schedule comes due next, by task.
    std::map<std::string, long long> next_runs();

private:
    std::map<std::string, RunRecord> by_task(const std::vector<std::string>& task_ids,
                                             const std::string& sql);

    Database& database_;
};

/// Whether what a task came to last is a failure. The task's own status is stored first and is to
/// be read first: it wins over the row, but for one of a run that began behind the end that was
/// stored with it. In the same second, the worse does.
/// @param newest_whole the task's of RunRecords::newest_whole_of()
bool has_failed(const TDataBackupConfig& task, const std::optional<RunRecord>& newest_whole);

}  // namespace standalone
