// Gives a write-ahead file its whole length before changes need it.
#include "platform/standalone/store/journal_room.h"

#include <sqlite3.h>

#include <array>

namespace standalone {

namespace {

// SQLite moves pages to the database once there are 1,000 of them; a frame is one with its header
// (sqlite.org/fileformat2.html#walformat). Changes of several pages go beyond that.
constexpr sqlite3_int64 FRAMES = 1024;
constexpr sqlite3_int64 FRAME = 24 + 4096;

/// Nothing of it is there while the database keeps another kind of journal.
sqlite3_file* open_journal(Database& database) {
    sqlite3_file* journal = nullptr;
    sqlite3_file_control(database.handle(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &journal);
    return journal != nullptr && journal->pMethods != nullptr ? journal : nullptr;
}

void write_zeros(sqlite3_file& journal) {
    static constexpr std::array<char, 16 * FRAME> ZEROS{};
    sqlite3_int64 size = 0;
    if (journal.pMethods->xFileSize(&journal, &size) != SQLITE_OK) return;
    for (; size < FRAMES * FRAME; size += ZEROS.size())
        if (journal.pMethods->xWrite(&journal, ZEROS.data(), ZEROS.size(), size) != SQLITE_OK)
            return;
    journal.pMethods->xSync(&journal, SQLITE_SYNC_NORMAL);
}

}  // namespace

void make_room_in_journal(Database& database) {
    try {
        const Transaction alone(database);  // nobody else writes behind what there is
        if (sqlite3_file* journal = open_journal(database)) write_zeros(*journal);
    } catch (const DatabaseError&) {
        // Somebody writes, and so may go on.
    }
}

}  // namespace standalone
