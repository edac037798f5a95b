// How SQLite opens files here: a shim (sqlite.org/vfs.html) over the way that it has itself.
#include "platform/standalone/store/database_files.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include <array>
#include <cstring>

namespace standalone {

namespace {

constexpr char NAME[] = "sparing";
constexpr sqlite3_int64 WAL_HEADER = 32;  // sqlite.org/fileformat2.html#walformat

/// SQLite's own, which does the work; nothing of it is asked with the shim in its place.
sqlite3_vfs* own() {
    static sqlite3_vfs* const found = sqlite3_vfs_find(nullptr);
    return found;
}

/// Whether a change was ever written there: the first one begins with a page's number, which is
/// never 0.
bool holds_changes(sqlite3_file* wal) {
    std::array<char, 4> page{};
    return wal->pMethods->xRead(wal, page.data(), page.size(), WAL_HEADER) == SQLITE_OK &&
           page != std::array<char, 4>{};
}

int open_file(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* opened) {
    if ((flags & SQLITE_OPEN_WAL) != 0) {
        const int existing = flags & ~SQLITE_OPEN_CREATE;
        if (own()->xOpen(own(), path, file, existing, opened) == SQLITE_OK) {
            if (holds_changes(file)) return SQLITE_OK;
            file->pMethods->xClose(file);
        }
    }
    return own()->xOpen(own(), path, file, flags, opened);
}

int full_path(sqlite3_vfs*, const char* path, int room, char* full) {
    struct stat last {};
    const std::size_t length = std::strlen(path) + 1;
    if (*path != '/' || length > static_cast<std::size_t>(room) || lstat(path, &last) != 0 ||
        S_ISLNK(last.st_mode))
        return own()->xFullPathname(own(), path, room, full);
    std::memcpy(full, path, length);
    return SQLITE_OK;
}

const char* add_shim() {
    if (own() == nullptr) return nullptr;
    static sqlite3_vfs shim = *own();
    shim.zName = NAME;
    shim.xOpen = open_file;
    shim.xFullPathname = full_path;
    return sqlite3_vfs_register(&shim, 0) == SQLITE_OK ? NAME : nullptr;
}

}  // namespace

const char* sparing_files() {
    static const char* const name = add_shim();
    return name;
}

}  // namespace standalone
