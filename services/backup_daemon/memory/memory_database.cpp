// The backup daemon's own database, backupd.db: where it stands, how it is made and kept clean.
#include "services/backup_daemon/memory/memory_database.h"

#include <array>
#include <filesystem>
#include <stdexcept>

#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "services/backup_daemon/memory/memory_schema_sql.h"
#include "services/backup_daemon/memory/task_numbers.h"

namespace services {
namespace {

using standalone::Database;

// A step here comes with one of config.db's: an older config.db keeps the daemon from starting
// until `recorderctl init` has brought it up to date, before which the state is copied.
constexpr std::array MEMORY_STEPS = {MEMORY_SCHEMA_1, MEMORY_SCHEMA_2, MEMORY_SCHEMA_3,
                                     MEMORY_SCHEMA_4};

/// What becomes of a table's rows when their task is gone.
struct Sweep {
    const char* table;
    const char* action;
    const char* which = "taskID NOT IN";  ///< the tasks that there are
};

constexpr std::array SWEEPS = {
    Sweep{"next_run", "DELETE FROM next_run"}, Sweep{"run_progress", "DELETE FROM run_progress"},
    Sweep{"run_rate", "DELETE FROM run_rate"}, Sweep{"task_date", "DELETE FROM task_date"},
    Sweep{"copies_differ", "DELETE FROM copies_differ"},
    Sweep{"checkpoint", "UPDATE checkpoint SET abandoned = 1", "abandoned = 0 AND taskID NOT IN"},
    // A state that was restored may give an identifier to another task. Runs keep their numbers.
    Sweep{"task_health",
          "UPDATE task_health SET first_run = last_number + 1, last_success = 0, "
          "success_time = NULL, success_goal = '', overdue_from = NULL, late_from = NULL, "
          "first_due = NULL, rule = ''",
          "(first_run <= last_number OR success_time IS NOT NULL OR rule <> '') AND "
          "taskID NOT IN"},
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
    const std::string kept = task_numbers(tasks);
    for (const Sweep& what : SWEEPS) sweep(memory.runs, what, kept);
}

}  // namespace services
