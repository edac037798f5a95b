// Backup tasks and the daemon's queue, in the configuration database.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/run_record.h"

namespace standalone {

class SettingsText;

/// What the backup daemon tells of a task.
struct TaskState {
    int status = TASK_NEW;             ///< row of strStatus_Arr
    std::optional<long long> started;  ///< seconds since the epoch; nothing leaves what is stored
    std::optional<long long> ended;    ///< in the same form
};

/// A place in the queue.
struct QueuePlace {
    std::string task_id;
    bool parallel = false;            ///< the run may go beside others
    RunCause cause = RunCause::hand;  ///< why the task was started
};

enum class QueueEnd { front, back };

/// The stored tasks. A changing call is on disk when it returns, or with the end of the transaction
/// that it stands in. An identifier of no task changes nothing. Any call may throw DatabaseError.
class TaskStore {
public:
    explicit TaskStore(Database& database) : database_(database) {}

    /// Has the calls of set_state(), enqueue(), dequeue() and remove() until commit() be stored all
    /// or none. No other changing call may stand in it.
    Transaction transaction() { return Transaction(database_); }

    /// All tasks, oldest identifier first.
    std::list<TDataBackupConfig> list();

    /// The same without their passwords, which nobody keeps for long; read again only when somebody
    /// has changed the database since the last call: for whoever looks at them again and again.
    /// Outside of transactions; valid until the next call.
    const std::list<TDataBackupConfig>& known();

    /// Another one when known() would have read something else, and after other changes, too.
    Database::Version version() { return database_.version(); }

    /// One task; nothing when there is none.
    std::optional<TDataBackupConfig> find(const std::string& task_id);

    /// Stores a settings text (docs/formats.md).
    /// @return 0 or a status of platform/nvrcfg.h
    int apply_settings(const std::string& text);

    /// Deletes a task and its place in the queue.
    void remove(const std::string& task_id);

    /// Sets fields of a record, named as in TDataBackupConfig, from texts, all or none; for
    /// support.
    /// @return 0, NVRCFG_BAD_MEMBER (no such field, or no value for it) or NVRCFG_UNKNOWN_TASK
    int set_fields(const std::string& task_id,
                   const std::vector<std::pair<std::string, std::string>>& values);

    /// Stores a task's state. The daemon is the only caller.
    void set_state(const std::string& task_id, const TaskState& state);

    /// The queue, next one first.
    std::vector<QueuePlace> queue();

    /// Puts a task into the queue. One that is in it keeps its place at the back, with all that it
    /// says, or moves to the front.
    void enqueue(QueueEnd end, const QueuePlace& place);

    /// Takes a task out of the queue.
    void dequeue(const std::string& task_id);

private:
    int create(const SettingsText& settings);
    int change(const std::string& task_id, const SettingsText& settings);

    Database& database_;
    std::list<TDataBackupConfig> known_;
    std::optional<Database::Version> known_version_;  ///< nothing: `known_` is not whole
};

}  // namespace standalone
