// Gives a write-ahead file its whole length before changes need it.
#include "platform/standalone/store/journal_room.h"

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <filesystem>

namespace standalone {

namespace {

// SQLite moves pages to the database once there are 1,000 of them; a frame is one with its header
// (sqlite.org/fileformat2.html#walformat). Changes of several pages go beyond that.
constexpr sqlite3_int64 FRAMES = 1024;
constexpr sqlite3_int64 FRAME = 24 + 4096;

// Below that, whatever else is written needs it more.
constexpr std::uintmax_t SPARE = 64 * 1024 * 1024;

/// Nothing of it is there while the database keeps another kind of journal.
sqlite3_file* open_journal(Database& database) {
    sqlite3_file* journal = nullptr;
    sqlite3_file_control(database.handle(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &journal);
    return journal != nullptr && journal->pMethods != nullptr ? journal : nullptr;
}

bool is_disk_roomy(Database& database) {
    std::error_code error;
    const auto disk = std::filesystem::space(sqlite3_db_filename(database.handle(), "main"), error);
    return !error && disk.available >= SPARE;
}

/// All of them, or none.
bool write_zeros(sqlite3_file& journal) {
    static constexpr std::array<char, 16 * FRAME> ZEROS{};
    sqlite3_int64 before = 0;
    if (journal.pMethods->xFileSize(&journal, &before) != SQLITE_OK) return false;
    for (auto size = before; size < FRAMES * FRAME; size += ZEROS.size())
        if (journal.pMethods->xWrite(&journal, ZEROS.data(), ZEROS.size(), size) != SQLITE_OK) {
            journal.pMethods->xTruncate(&journal, before);
            return false;
        }
    return true;
}

}  // namespace

void make_room_in_journal(Database& database) {
    if (!is_disk_roomy(database)) return;
    sqlite3_file* journal = nullptr;
    try {
        const Transaction alone(database);  // nobody else writes behind what there is
        journal = open_journal(database);
        if (journal == nullptr || !write_zeros(*journal)) return;
    } catch (const DatabaseError&) {
        return;  // somebody writes, and so may go on
    }
    // Nobody has to wait for this: whoever writes over zeros flushes what was written.
    journal->pMethods->xSync(journal, SQLITE_SYNC_NORMAL);
}

}  // namespace standalone
