// Moves the daemon's rows out of the configuration database, where earlier versions kept them.
#include "services/backup_daemon/memory/take_over.h"

#include "platform/standalone/store/database.h"

namespace services {
namespace {

using standalone::Database;

constexpr char COPY_ROWS[] = R"(
INSERT OR IGNORE INTO main.next_run (taskID, rule, due)
    SELECT taskID, rule, due FROM config.next_run;
INSERT OR IGNORE INTO main.run_progress (taskID, bytes_planned, bytes_done, percent, rate,
        files_done, files_left, files_failed, seconds_left, message, time_ms)
    SELECT taskID, bytes_planned, bytes_done, percent, rate,
        files_done, files_left, files_failed, seconds_left, message, time_ms
    FROM config.run_progress;
INSERT OR IGNORE INTO main.task_date (taskID, trusted_day)
    SELECT taskID, date(time_ms / 1000, 'unixepoch', 'localtime') FROM config.run_progress;
INSERT OR IGNORE INTO main.destination_address (address, id)
    SELECT address, lower(hex(randomblob(16))) FROM (
        SELECT destination AS address FROM config.copied_file
        UNION SELECT destination FROM config.checkpoint
    );
INSERT OR IGNORE INTO main.destination (id) SELECT id FROM main.destination_address;
INSERT OR IGNORE INTO main.copied_file (destination, path, taskID, day, size, modified_ns, sha256,
        side_file, removed)
    SELECT id, path, taskID, day, size, modified_ns, sha256, side_file, removed
    FROM config.copied_file JOIN main.destination_address ON address = destination;
INSERT OR IGNORE INTO main.checkpoint (taskID, destination, path, temporary, offset, sha256)
    SELECT taskID, id, path, temporary, offset, sha256
    FROM config.checkpoint JOIN main.destination_address ON address = destination;
)";

constexpr char DROP_TABLES[] = R"(
DROP TABLE config.next_run;
DROP TABLE config.run_progress;
DROP TABLE config.copied_file;
DROP TABLE config.checkpoint;
)";

/// They go all at once, so one speaks for all.
bool has_old_tables(Database& database) {
    return database
        .prepare("SELECT 1 FROM config.sqlite_schema WHERE type = 'table' AND name = 'copied_file'")
        .step();
}

}  // namespace

void take_over_from_config(const std::string& memory_path, const std::string& config_path) {
    Database database(memory_path, Database::Access::writing);
    database.prepare("ATTACH ? AS config").bind(1, config_path).step();
    if (!has_old_tables(database)) return;
    database.run(COPY_ROWS);
    standalone::Transaction dropping(database);
    database.run(DROP_TABLES);
    dropping.commit();
}

}  // namespace services
