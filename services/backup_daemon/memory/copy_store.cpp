// The memory of one task's copies on one destination, in the daemon's own database.
#include "services/backup_daemon/memory/copy_store.h"

#include "services/backup_daemon/memory/path_range.h"
#include "services/backup_daemon/memory/sampled.h"

namespace services {
namespace {

constexpr char COPIED[] =
    "SELECT path, day, size, modified_ns, sha256, side_file, removed, share_modified_ns, sampled "
    "FROM copied_file ";
constexpr char CHECKPOINT[] = "SELECT path, temporary, offset, sha256 FROM checkpoint ";

// What column "removed" says.
constexpr int REMOVED = 1;
constexpr int BEING_REMOVED = 2;

// Those of a folder that the next sample is for.
constexpr char TO_SAMPLE[] =
    "WHERE destination = ?1 AND taskID = ?2 AND removed = 0 AND sampled = 0 "
    "AND path > ?3 AND path < ?4 ";

CopiedFile load_copied(standalone::Statement& row) {
    CopiedFile file{.path = row.text(0),
                    .day = row.text(1),
                    .size = row.integer(2),
                    .modified_ns = row.integer(3),
                    .sha256 = row.text(4),
                    .side_file = row.integer(5) != 0,
                    .removed = row.integer(6) != 0,
                    .doubted = row.integer(8) == SPOILT || row.integer(8) == DOUBTED};
    if (!row.is_null(7)) file.share_modified_ns = row.integer(7);
    return file;
}

Checkpoint load_checkpoint(standalone::Statement& row) {
    return {.path = row.text(0),
            .temporary = row.text(1),
            .offset = row.integer(2),
            .sha256 = row.text(3)};
}

/// As newest_days() names it.
std::string day_of_camera(const CopiedFile& file) {
    return file.path.substr(0, file.path.find('/') + 1) + file.day;
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
    return all_of(of_task(std::string(CHECKPOINT) + "WHERE destination = ? AND taskID = ?"));
}

std::vector<Checkpoint> CopyStore::abandoned() {
    return all_of(of_task(std::string(CHECKPOINT) +
                          "WHERE destination = ? AND taskID != ? AND abandoned = 1"));
}

std::vector<Checkpoint> CopyStore::all_of(standalone::Statement row) {
    std::vector<Checkpoint> found;
    while (row.step()) found.push_back(load_checkpoint(row));
    return found;
}

void CopyStore::drop_abandoned(const std::string& temporary) {
    of_destination(
        "DELETE FROM checkpoint WHERE destination = ? AND temporary = ? "
        "AND abandoned = 1")
        .bind(2, temporary)
        .step();
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
        "modified_ns, sha256, side_file, removed, share_modified_ns, sampled) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, 0)");
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

/// The daemon's loop waits for this, and a task may have millions of copies: of those that are not
/// older one a camera is looked for, in the order of paths, where it comes first as a rule.
std::set<std::string> CopyStore::newest_days(const std::string& day) {
    standalone::Statement row = of_task(
        "SELECT camera || newest FROM ("
        "SELECT substr(path, 1, instr(path, '/')) AS camera, max(day) AS newest FROM copied_file "
        "WHERE destination = ?1 AND taskID = ?2 AND removed = 0 AND day < ?3 GROUP BY camera) "
        "WHERE NOT EXISTS (SELECT 1 FROM copied_file WHERE destination = ?1 "
        "AND path >= camera || ?3 AND path < rtrim(camera, '/') || '0' "
        "AND +taskID = ?2 AND +removed = 0)");
    row.bind(3, day);
    std::set<std::string> days;
    while (row.step()) days.insert(row.text(0));
    return days;
}

/// Prepares the look at copies that are older than a day.
standalone::Statement CopyStore::older(const std::string& day) {
    standalone::Statement rows =
        of_task(std::string(COPIED) +
                "WHERE destination = ? AND taskID = ? AND removed = 0 AND day < ? ORDER BY day");
    rows.bind(3, day);
    return rows;
}

std::vector<CopiedFile> CopyStore::older_than(const std::string& day, int limit,
                                              const std::set<std::string>& kept) {
    standalone::Statement row = older(day);
    std::vector<CopiedFile> files;
    while (files.size() < static_cast<std::size_t>(limit) && row.step())
        if (CopiedFile file = load_copied(row); !kept.contains(day_of_camera(file)))
            files.push_back(std::move(file));
    return files;
}

FileAmount CopyStore::amount_older_than(const std::string& day, const std::set<std::string>& kept,
                                        long long enough) {
    standalone::Statement row = older(day);
    FileAmount amount;
    while (amount.bytes < enough && row.step()) {
        const CopiedFile file = load_copied(row);
        if (kept.contains(day_of_camera(file))) continue;
        ++amount.files;
        amount.bytes += file.size;
    }
    return amount;
}

void CopyStore::forget(const std::string& path) {
    of_destination("DELETE FROM copied_file WHERE destination = ? AND path = ?")
        .bind(2, path)
        .step();
}

void CopyStore::begin_removal(const std::vector<CopiedFile>& copies) {
    standalone::Transaction transaction(database_);
    for (const CopiedFile& copy : copies) set_removed(copy.path, BEING_REMOVED);
    transaction.commit();
}

std::vector<CopiedFile> CopyStore::half_removed(int limit) {
    standalone::Statement row =
        of_task(std::string(COPIED) +
                "WHERE destination = ? AND taskID = ? AND removed = ? ORDER BY day LIMIT ?");
    row.bind(3, BEING_REMOVED).bind(4, limit);
    std::vector<CopiedFile> files;
    while (row.step()) files.push_back(load_copied(row));
    return files;
}

void CopyStore::mark_removed(const std::string& path) {
    set_removed(path, REMOVED);
}

void CopyStore::set_removed(const std::string& path, int removed) {
    of_destination("UPDATE copied_file SET removed = ?3 WHERE destination = ?1 AND path = ?2")
        .bind(2, path)
        .bind(3, removed)
        .step();
}

Sample CopyStore::sample() {
    standalone::Statement first = of_task(std::string(COPIED) +
                                          "WHERE destination = ? AND taskID = ? AND removed = 0 "
                                          "AND sampled = 0 ORDER BY day LIMIT 1");
    if (!first.step()) return {};
    Sample sample{.folder = day_of_camera(load_copied(first)) + "/"};
    standalone::Statement row =
        of_task(std::string(COPIED) + TO_SAMPLE +
                "ORDER BY random() LIMIT (SELECT (count(*) + 99) / 100 FROM copied_file " +
                TO_SAMPLE + ")");
    row.bind(3, sample.folder).bind(4, behind(sample.folder));
    while (row.step()) sample.copies.push_back(load_copied(row));
    return sample;
}

void CopyStore::end_sample(const std::string& folder) {
    of_task(std::string("UPDATE copied_file SET sampled = 1 ") + TO_SAMPLE)
        .bind(3, folder)
        .bind(4, behind(folder))
        .step();
}

void CopyStore::doubt(const std::string& path, const std::string& folder) {
    standalone::Transaction transaction(database_);
    of_destination("UPDATE copied_file SET sampled = ?3 WHERE destination = ?1 AND path = ?2")
        .bind(2, path)
        .bind(3, SPOILT)
        .step();
    of_destination(
        "UPDATE copied_file SET sampled = ?4 "
        "WHERE destination = ?1 AND path > ?2 AND path < ?3 AND sampled NOT IN (?4, ?5)")
        .bind(2, folder)
        .bind(3, behind(folder))
        .bind(4, DOUBTED)
        .bind(5, SPOILT)
        .step();
    note_that_copies_differ(path);
    transaction.commit();
}

/// For whoever tells people: it outlives the run, in which the copy may be made anew at once.
void CopyStore::note_that_copies_differ(const std::string& path) {
    database_
        .prepare(
            "DELETE FROM copies_differ WHERE taskID = ?1 AND run < "
            "(SELECT last_success FROM task_health WHERE taskID = ?1)")
        .bind(1, task_)
        .step();
    database_
        .prepare(
            "INSERT INTO copies_differ (taskID, since, run, copies, path) VALUES (?1, unixepoch(), "
            "coalesce((SELECT last_number FROM task_health WHERE taskID = ?1), 0), 1, ?2) "
            "ON CONFLICT (taskID) DO UPDATE SET run = excluded.run, copies = copies + 1, "
            "path = excluded.path")
        .bind(1, task_)
        .bind(2, path)
        .step();
}

std::set<std::string> CopyStore::spoilt() {
    standalone::Statement row = of_task(
        "SELECT path FROM copied_file WHERE destination = ? AND taskID = ? AND sampled = 2");
    std::set<std::string> paths;
    while (row.step()) paths.insert(row.text(0));
    return paths;
}

void CopyStore::accept_spoilt() {
    of_task(
        "UPDATE copied_file SET sampled = ?3 "
        "WHERE destination = ?1 AND taskID = ?2 AND sampled = 2")
        .bind(3, DOUBTED)
        .step();
}

std::optional<TaskDate> CopyStore::date() {
    standalone::Statement row = database_.prepare(
        "SELECT trusted_day, doubted_day, doubted_until FROM task_date WHERE taskID = ?");
    if (!row.bind(1, task_).step()) return {};
    return TaskDate{row.text(0), row.text(1), row.text(2)};
}

void CopyStore::set_date(const TaskDate& date) {
    database_
        .prepare(
            "INSERT OR REPLACE INTO task_date (taskID, trusted_day, doubted_day, doubted_until) "
            "VALUES (?, ?, nullif(?, ''), nullif(?, ''))")
        .bind(1, task_)
        .bind(2, date.trusted)
        .bind(3, date.doubted_from)
        .bind(4, date.doubted_until)
        .step();
}

}  // namespace services
