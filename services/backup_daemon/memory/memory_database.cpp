// The backup daemon's own database, backupd.db: where it stands, how it is made and kept clean.
#include "services/backup_daemon/memory/memory_database.h"

#include <array>
#include <filesystem>
#include <stdexcept>

#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "services/backup_daemon/memory/memory_schema_sql.h"

namespace services {
namespace {

using standalone::Database;

constexpr std::array MEMORY_STEPS = {MEMORY_SCHEMA_1, MEMORY_SCHEMA_2, MEMORY_SCHEMA_3};

/// What becomes of a table's rows when their task is gone.
struct Sweep {
    const char* table;
    const char* action;
    const char* which = "taskID NOT IN";  ///< the tasks that there are
};

constexpr std::array SWEEPS = {
    Sweep{"next_run", "DELETE FROM next_run"}, Sweep{"run_progress", "DELETE FROM run_progress"},
    Sweep{"task_date", "DELETE FROM task_date"},
    Sweep{"checkpoint", "UPDATE checkpoint SET abandoned = 1", "abandoned = 0 AND taskID NOT IN"},
    // A state that was restored may have a task that was not there for a while.
    Sweep{"checkpoint", "UPDATE checkpoint SET abandoned = 0", "abandoned = 1 AND taskID IN"}};

/// Looks before it writes: who writes waits for whoever else does.
void sweep(Database& database, const Sweep& what, const std::string& kept) {
    const std::string rows =
        std::string(" WHERE ") + what.which + " (SELECT value FROM json_each(?))";
    standalone::Statement found =
        database.prepare(std::string("SELECT 1 FROM ") + what.table + rows + " LIMIT 1");
    if (!found.bind(1, kept).step()) return;
    database.prepare(what.action + rows).bind(1, kept).step();
}

/// The tasks' identifiers as a JSON array of numbers.
std::string json_array(const std::list<TDataBackupConfig>& tasks) {
    std::string array = "[";
    for (const TDataBackupConfig& task : tasks) {
        if (array.size() > 1) array += ',';
        array += task.taskID;
    }
    return array + ']';
}

}  // namespace

std::string memory_database_path() {
    return standalone::state_folder() + "/backupd.db";
}

Memory open_memory() {
    const std::string path = memory_database_path();
    standalone::migrate(path, MEMORY_STEPS);
    return {Database(path, Database::Access::writing),
            Database(path, Database::Access::writing, Database::Durability::deferred)};
}

Database open_existing_memory(Database::Access access) {
    const std::string path = memory_database_path();
    if (!std::filesystem::exists(path))
        throw std::runtime_error("there is no " + path + "; the daemon makes it when it starts");
    Database memory(path, access);
    standalone::require_current(memory, path, MEMORY_STEPS);
    return memory;
}

void keep_only(Memory& memory, const std::list<TDataBackupConfig>& tasks) {
    const std::string kept = json_array(tasks);
    for (const Sweep& what : SWEEPS) sweep(memory.runs, what, kept);
}

}  // namespace services
