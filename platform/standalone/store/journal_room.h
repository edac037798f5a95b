// Gives a write-ahead file its whole length before changes need it.
#pragma once

#include "platform/standalone/store/database.h"

namespace standalone {

/// Writes zeros behind what the database's write-ahead file holds, as far as the file comes to
/// reach anyway: until SQLite moves its pages to the database and writes them over. A change within
/// a file's length flushes its own bytes; one that makes the file longer has the file system flush
/// its own records, too, which takes about twice as long. SQLite takes zeros for the end of what
/// was written.
///
/// For a database that stays open: its last connection removes the file. Where the disk has little
/// room, or somebody writes for too long, changes make the file longer as they come.
void make_room_in_journal(Database& database);

}  // namespace standalone
