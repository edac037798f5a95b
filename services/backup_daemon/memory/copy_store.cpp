// What the backup daemon has copied where, and how far it got in the files it has begun.
#include "services/backup_daemon/memory/copy_store.h"

namespace services {

namespace {

constexpr std::string_view copied_columns =
    "SELECT path, day, size, modified_ns, sha256, side_file, removed FROM copied_file ";

CopiedFile load_copied(standalone::Statement& row) {
    return {row.text(0), row.text(1),         row.integer(2),     row.integer(3),
            row.text(4), row.integer(5) != 0, row.integer(6) != 0};
}

Checkpoint load_checkpoint(standalone::Statement& row) {
    return {row.text(0), row.text(1), row.integer(2), row.text(3)};
}

/// The first text behind all those that begin with `folder`, which ends with a slash.
std::string behind(std::string folder) {
    folder.back() = '/' + 1;
    return folder;
}

}  // namespace

CopyStore::CopyStore(standalone::Database& database, std::string task_id, std::string destination)
    : database_(database), task_id_(std::move(task_id)), destination_(std::move(destination)) {
    database_.run("PRAGMA synchronous=NORMAL");
}

std::map<std::string, CopiedFile> CopyStore::copied_in(const std::string& folder) {
    standalone::Statement row = database_.prepare(
        std::string(copied_columns) + "WHERE destination = ? AND path > ? AND path < ?");
    row.bind(1, destination_).bind(2, folder).bind(3, behind(folder));
    std::map<std::string, CopiedFile> files;
    while (row.step()) {
        CopiedFile file = load_copied(row);
        files.emplace(file.path, std::move(file));
    }
    return files;
}

std::optional<Checkpoint> CopyStore::checkpoint(const std::string& path) {
    standalone::Statement row = database_.prepare(
        "SELECT path, temporary, offset, sha256 FROM checkpoint "
        "WHERE taskID = ? AND destination = ? AND path = ?");
    if (!row.bind(1, task_id_).bind(2, destination_).bind(3, path).step()) return {};
    return load_checkpoint(row);
}

std::vector<Checkpoint> CopyStore::checkpoints() {
    standalone::Statement row = database_.prepare(
        "SELECT path, temporary, offset, sha256 FROM checkpoint "
        "WHERE taskID = ? AND destination = ?");
    row.bind(1, task_id_).bind(2, destination_);
    std::vector<Checkpoint> found;
    while (row.step()) found.push_back(load_checkpoint(row));
    return found;
}

void CopyStore::save(const Checkpoint& made) {
    // A task that was deleted meanwhile gets none: the reference would point nowhere.
    standalone::Statement insert = database_.prepare(
        "INSERT OR REPLACE INTO checkpoint SELECT taskID, ?, ?, ?, ?, ? FROM task "
        "WHERE taskID = ?");
    insert.bind(1, destination_).bind(2, made.path).bind(3, made.temporary);
    insert.bind(4, made.offset).bind(5, made.sha256).bind(6, task_id_).step();
}

void CopyStore::drop_checkpoint(const std::string& path) {
    database_.prepare("DELETE FROM checkpoint WHERE taskID = ? AND destination = ? AND path = ?")
        .bind(1, task_id_)
        .bind(2, destination_)
        .bind(3, path)
        .step();
}

void CopyStore::record(const CopiedFile& file) {
    standalone::Transaction transaction(database_);
    standalone::Statement insert =
        database_.prepare("INSERT OR REPLACE INTO copied_file VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, destination_).bind(2, file.path).bind(3, task_id_).bind(4, file.day);
    insert.bind(5, file.size).bind(6, file.modified_ns).bind(7, file.sha256);
    insert.bind(8, file.side_file).bind(9, file.removed).step();
    drop_checkpoint(file.path);
    transaction.commit();
}

std::string CopyStore::oldest_day() {
    standalone::Statement row = database_.prepare(
        "SELECT min(day) FROM copied_file WHERE taskID = ? AND destination = ? AND removed = 0");
    row.bind(1, task_id_).bind(2, destination_).step();
    return row.text(0);
}

std::vector<CopiedFile> CopyStore::older_than(const std::string& day, int limit) {
    standalone::Statement row = database_.prepare(
        std::string(copied_columns) +
        "WHERE taskID = ? AND destination = ? AND removed = 0 AND day < ? ORDER BY day LIMIT ?");
    row.bind(1, task_id_).bind(2, destination_).bind(3, day).bind(4, limit);
    std::vector<CopiedFile> files;
    while (row.step()) files.push_back(load_copied(row));
    return files;
}

void CopyStore::forget(const std::string& path) {
    change("DELETE FROM copied_file WHERE destination = ? AND path = ?", path);
}

void CopyStore::mark_removed(const std::string& path) {
    change("UPDATE copied_file SET removed = 1 WHERE destination = ? AND path = ?", path);
}

void CopyStore::change(const char* sql, const std::string& path) {
    database_.prepare(sql).bind(1, destination_).bind(2, path).step();
}

}  // namespace services
