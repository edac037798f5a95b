// Backup tasks and the daemon's queue, in the configuration database.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"

namespace standalone {

class SettingsText;

/// A place in the queue.
struct QueuePlace {
    std::string task_id;
    bool parallel = false;  ///< the run may go beside others
};

/// The stored tasks. Every changing call is one transaction, on disk when it returns. Any call may
/// throw DatabaseError.
class TaskStore {
public:
    explicit TaskStore(Database& database) : database_(database) {}

    /// All tasks, oldest identifier first.
    std::list<TDataBackupConfig> list();

    /// One task; nothing when there is none.
    std::optional<TDataBackupConfig> find(const std::string& task_id);

    /// Stores a settings text (docs/formats.md).
    /// @return 0 or a status of platform/nvrcfg.h
    int apply_settings(const std::string& text);

    /// Deletes a task and its place in the queue.
    /// @return whether there was such a task
    bool remove(const std::string& task_id);

    /// Sets one field of a record, named as in TDataBackupConfig, from text; for support.
    /// @return 0, NVRCFG_BAD_MEMBER (no such field, or no value for it) or NVRCFG_UNKNOWN_TASK
    int set_field(const std::string& task_id, const std::string& field, const std::string& value);

    /// Sets several fields, all or none; otherwise as set_field().
    int set_fields(const std::string& task_id,
                   const std::vector<std::pair<std::string, std::string>>& values);

    /// Sets a task's status, a row of strStatus_Arr. The daemon is the only caller.
    /// @return whether there was such a task
    bool set_status(const std::string& task_id, int status);

    /// Identifiers of the waiting tasks, next one first.
    std::vector<std::string> waiting();

    /// The queue with what it says about each place, next one first.
    std::vector<QueuePlace> queue();

    /// Puts a task into the queue and gives it status "wait". A task that waits already keeps its
    /// place, or moves to the front when `at_front` is set.
    /// @param parallel its run may go beside others
    /// @return whether there is such a task
    bool enqueue(const std::string& task_id, bool at_front, bool parallel = false);

    /// Takes a task out of the queue.
    /// @return whether it was waiting
    bool dequeue(const std::string& task_id);

private:
    int create(const SettingsText& settings);

    Database& database_;
};

}  // namespace standalone
