// What is remembered of the places that copies go to, in the daemon's own database.
#include "services/backup_daemon/memory/destination_store.h"

#include <array>

#include "services/backup_daemon/memory/path_range.h"

namespace services {
namespace {

using standalone::Database;
using standalone::Statement;

// Parameter 1 takes in what 2 has; what both have stays as 1 has it. A folder that is a camera's
// here and was not that camera's there, or the other way round, holds copies of who knows which:
// they are forgotten, or the camera gets another folder. What nobody has recorded is compared, and
// never replaced or removed; a camera's next copy would take the place of another one's.
// Folders of cameras stay with 2 as well, for what is taken in later.
constexpr std::array TAKE_IN = {
    "DELETE FROM copied_file WHERE destination = ?2 AND substr(path, 1, instr(path, '/') - 1) IN "
    "(SELECT folder FROM camera_folder AS here WHERE destination = ?1 AND NOT EXISTS "
    "(SELECT 1 FROM camera_folder WHERE destination = ?2 AND guid = here.guid "
    "AND folder = here.folder))",
    "INSERT OR IGNORE INTO camera_folder (destination, guid, folder, folded) "
    "SELECT ?1, guid, folder, folded FROM camera_folder AS there WHERE destination = ?2 "
    "AND NOT EXISTS (SELECT 1 FROM copied_file WHERE destination = ?1 "
    "AND path > there.folder || '/' AND path < there.folder || '0')",
    "UPDATE OR IGNORE copied_file SET destination = ?1 WHERE destination = ?2",
    "UPDATE OR IGNORE checkpoint SET destination = ?1 WHERE destination = ?2",
    "UPDATE destination_address SET id = ?1 WHERE id = ?2"};
constexpr std::array DROP = {"DELETE FROM copied_file WHERE destination = ?",
                             "DELETE FROM checkpoint WHERE destination = ?",
                             "DELETE FROM destination WHERE id = ?"};

}  // namespace

KnownPlace DestinationStore::known() {
    Statement random = database_.prepare("SELECT lower(hex(randomblob(16)))");
    random.step();
    const std::string fresh = random.text(0);
    Statement row = database_.prepare(
        "SELECT id, marked, own FROM destination_address JOIN destination USING (id) "
        "WHERE address = ?");
    if (!row.bind(1, address_).step()) return {.id = fresh, .fresh = fresh};
    return {.id = row.text(0),
            .is_known = true,
            .marked = row.integer(1) != 0,
            .own = row.integer(2) != 0,
            .fresh = fresh};
}

void DestinationStore::settle(const FoundDestination& found) {
    standalone::Transaction transaction(database_);
    const KnownPlace before = known();
    turn_to(found.id);
    note(found);
    const bool is_the_same_folder = before.is_known && before.own == found.own;
    if (is_the_same_folder && !before.marked && before.id != found.id) note_former(before.id);
    take_in_formers();
    Statement address =
        database_.prepare("INSERT OR REPLACE INTO destination_address (address, id) VALUES (?, ?)");
    address.bind(1, address_).bind(2, found.id).step();
    transaction.commit();
}

void DestinationStore::note(const FoundDestination& found) {
    database_
        .prepare("INSERT OR IGNORE INTO destination (id, marked, folders_known) VALUES (?, 0, 1)")
        .bind(1, found.id)
        .step();
    Statement update =
        database_.prepare("UPDATE destination SET marked = max(marked, ?), own = ? WHERE id = ?");
    update.bind(1, found.marked).bind(2, found.own).bind(3, found.id).step();
}

void DestinationStore::note_former(const std::string& former) {
    Statement insert =
        database_.prepare("INSERT OR REPLACE INTO former_destination (former, id) VALUES (?, ?)");
    insert.bind(1, former).bind(2, id_).step();
}

/// Each time: a run that was at work at the place when it was taken in goes on under the identifier
/// that it had then.
void DestinationStore::take_in_formers() {
    Statement row = database_.prepare("SELECT former FROM former_destination WHERE id = ?");
    row.bind(1, id_);
    std::vector<std::string> formers;
    while (row.step()) formers.push_back(row.text(0));
    for (const std::string& former : formers) take_in(former);
}

void DestinationStore::take_in(const std::string& other) {
    for (const char* sql : TAKE_IN) database_.prepare(sql).bind(1, id_).bind(2, other).step();
    for (const char* sql : DROP) database_.prepare(sql).bind(1, other).step();
}

std::map<std::string, std::string> DestinationStore::camera_folders() {
    Statement row =
        database_.prepare("SELECT guid, folder FROM camera_folder WHERE destination = ?");
    row.bind(1, id_);
    std::map<std::string, std::string> folders;
    while (row.step()) folders.emplace(row.text(0), row.text(1));
    return folders;
}

/// From one folder to the next: a destination may have a hundred thousand copies.
std::set<std::string> DestinationStore::folders_of_copies() {
    Statement row =
        database_.prepare("SELECT min(path) FROM copied_file WHERE destination = ? AND path >= ?");
    row.bind(1, id_);
    std::set<std::string> folders;
    std::string from;
    for (;;) {
        row.bind(2, from).step();
        if (row.is_null(0)) return folders;
        const std::string path = row.text(0);
        const std::string folder = path.substr(0, path.find('/'));
        folders.insert(folder);
        from = behind(folder + '/');
        row.reset();
    }
}

void DestinationStore::add_camera_folder(const std::string& guid, const std::string& folder,
                                         const std::string& folded) {
    Statement insert = database_.prepare(
        "INSERT INTO camera_folder (destination, guid, folder, folded) VALUES (?, ?, ?, ?)");
    insert.bind(1, id_).bind(2, guid).bind(3, folder).bind(4, folded).step();
}

void DestinationStore::note_room(const std::string& share, const std::optional<KnownRoom>& room) {
    if (!room) {
        database_.prepare("DELETE FROM share_room WHERE destination = ?").bind(1, share).step();
        return;
    }
    Statement insert = database_.prepare(
        "INSERT OR REPLACE INTO share_room (destination, free, total, time) "
        "VALUES (?, ?, ?, unixepoch())");
    insert.bind(1, share).bind(2, room->free).bind(3, room->total).step();
}

std::vector<std::string> DestinationStore::addresses_without_folders(Database& database) {
    Statement row = database.prepare(
        "SELECT address FROM destination_address JOIN destination USING (id) "
        "WHERE folders_known = 0");
    std::vector<std::string> addresses;
    while (row.step()) addresses.push_back(row.text(0));
    return addresses;
}

void DestinationStore::folders_are_known() {
    database_.prepare("UPDATE destination SET folders_known = 1 WHERE id = ?").bind(1, id_).step();
}

}  // namespace services
