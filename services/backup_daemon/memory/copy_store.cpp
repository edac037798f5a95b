// The memory of one task's copies on one destination, in the daemon's own database.
#include "services/backup_daemon/memory/copy_store.h"

namespace services {
namespace {

constexpr char COPIED[] =
    "SELECT path, day, size, modified_ns, sha256, side_file, removed, share_modified_ns "
    "FROM copied_file ";
constexpr char CHECKPOINT[] = "SELECT path, temporary, offset, sha256 FROM checkpoint ";

CopiedFile load_copied(standalone::Statement& row) {
    CopiedFile file{.path = row.text(0),
                    .day = row.text(1),
                    .size = row.integer(2),
                    .modified_ns = row.integer(3),
                    .sha256 = row.text(4),
                    .side_file = row.integer(5) != 0,
                    .removed = row.integer(6) != 0};
    if (!row.is_null(7)) file.share_modified_ns = row.integer(7);
    return file;
}

Checkpoint load_checkpoint(standalone::Statement& row) {
    return {.path = row.text(0),
            .temporary = row.text(1),
            .offset = row.integer(2),
            .sha256 = row.text(3)};
}

/// The first text behind all those that begin with `folder`, which ends with a slash.
std::string behind(std::string folder) {
    folder.back() = '/' + 1;
    return folder;
}

}  // namespace

CopyStore::CopyStore(standalone::Database& database, const std::string& task_id,
                     std::string destination)
    : database_(database), task_(std::stoll(task_id)), destination_(std::move(destination)) {}

/// Prepares SQL about the destination, which is its parameter 1.
standalone::Statement CopyStore::of_destination(const std::string& sql) {
    standalone::Statement statement = database_.prepare(sql);
    statement.bind(1, destination_);
    return statement;
}

/// Prepares SQL about the destination and the task, its parameters 1 and 2.
standalone::Statement CopyStore::of_task(const std::string& sql) {
    standalone::Statement statement = of_destination(sql);
    statement.bind(2, task_);
    return statement;
}

std::map<std::string, CopiedFile> CopyStore::copied_in(const std::string& folder) {
    standalone::Statement row =
        of_destination(std::string(COPIED) + "WHERE destination = ? AND path > ? AND path < ?");
    row.bind(2, folder).bind(3, behind(folder));
    std::map<std::string, CopiedFile> files;
    while (row.step()) {
        CopiedFile file = load_copied(row);
        files.emplace(file.path, std::move(file));
    }
    return files;
}

std::optional<Checkpoint> CopyStore::checkpoint(const std::string& path) {
    standalone::Statement row =
        of_task(std::string(CHECKPOINT) + "WHERE destination = ? AND taskID = ? AND path = ?");
    if (!row.bind(3, path).step()) return {};
    return load_checkpoint(row);
}

std::vector<Checkpoint> CopyStore::checkpoints() {
    standalone::Statement row =
        of_task(std::string(CHECKPOINT) + "WHERE destination = ? AND taskID = ?");
    std::vector<Checkpoint> found;
    while (row.step()) found.push_back(load_checkpoint(row));
    return found;
}

void CopyStore::save(const Checkpoint& made) {
    standalone::Statement insert = of_task(
        "INSERT OR REPLACE INTO checkpoint (destination, taskID, path, temporary, offset, "
        "sha256) VALUES (?, ?, ?, ?, ?, ?)");
    insert.bind(3, made.path).bind(4, made.temporary).bind(5, made.offset);
    insert.bind(6, made.sha256).step();
}

void CopyStore::drop_checkpoint(const std::string& path) {
    of_task("DELETE FROM checkpoint WHERE destination = ? AND taskID = ? AND path = ?")
        .bind(3, path)
        .step();
}

void CopyStore::record(const CopiedFile& file) {
    standalone::Transaction transaction(database_);
    standalone::Statement insert = of_task(
        "INSERT OR REPLACE INTO copied_file (destination, taskID, path, day, size, "
        "modified_ns, sha256, side_file, removed, share_modified_ns) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(3, file.path).bind(4, file.day).bind(5, file.size).bind(6, file.modified_ns);
    insert.bind(7, file.sha256).bind(8, file.side_file).bind(9, file.removed);
    if (file.share_modified_ns)
        insert.bind(10, *file.share_modified_ns);
    else
        insert.bind_null(10);
    insert.step();
    drop_checkpoint(file.path);
    transaction.commit();
}

std::string CopyStore::oldest_day() {
    standalone::Statement row = of_task(
        "SELECT min(day) FROM copied_file WHERE destination = ? AND taskID = ? AND removed = 0");
    row.step();
    return row.text(0);
}

std::vector<CopiedFile> CopyStore::older_than(const std::string& day, int limit) {
    standalone::Statement row =
        of_task(std::string(COPIED) +
                "WHERE destination = ? AND taskID = ? AND removed = 0 AND day < ? "
                "ORDER BY day LIMIT ?");
    row.bind(3, day).bind(4, limit);
    std::vector<CopiedFile> files;
    while (row.step()) files.push_back(load_copied(row));
    return files;
}

void CopyStore::forget(const std::string& path) {
    of_destination("DELETE FROM copied_file WHERE destination = ? AND path = ?")
        .bind(2, path)
        .step();
}

void CopyStore::mark_removed(const std::string& path) {
    of_destination("UPDATE copied_file SET removed = 1 WHERE destination = ? AND path = ?")
        .bind(2, path)
        .step();
}

}  // namespace services
