// How SQLite opens files here: its own way, with a flush and some looks less for each.
#pragma once

namespace standalone {

/// The name of this way, for sqlite3_open_v2(); it differs from SQLite's own in two points.
///
/// A write-ahead file that holds changes is opened without O_CREAT. With it, SQLite takes the file
/// for one of its own making and flushes the folder with the connection's first change, so each
/// request would wait for the disk twice. That flush is for the file's name, and it was made:
/// SQLite writes the file's first 32 bytes, flushes them and the folder, and only then writes a
/// change. So a file that is longer has its name on disk, whichever process made it and whatever
/// became of that; any other one is opened with O_CREAT. (Whoever puts files there by hand sees to
/// it himself, as "recorderctl state restore" does.) It stays there as long as anybody has the
/// database open: the last one alone removes it. (A connection with synchronous=OFF, of which there
/// is none but in tests, breaks this as it breaks all else.)
///
/// An absolute path is taken as it is, unless its last part is a symbolic link: nothing but the
/// journals' names depends on the folders before.
///
/// @return null when SQLite refuses; databases are then opened its own way
const char* sparing_files();

}  // namespace standalone
