// Whether the recorder's state may have changed, told without reading it.
#include "console/state_mark.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "platform/standalone/store/digest.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/version.h"

namespace console {

namespace {

constexpr char NO_FILE[] = "none ";

/// Every change is a write to one of the two files (sqlite.org/wal.html).
std::string file_mark(const std::string& path) {
    struct stat file {};
    // An empty log is as good as none: whoever reads first makes one.
    if (stat(path.c_str(), &file) != 0 || file.st_size == 0) return NO_FILE;
    return std::to_string(file.st_ino) + ' ' + std::to_string(file.st_size) + ' ' +
           std::to_string(file.st_mtim.tv_sec) + ' ' + std::to_string(file.st_mtim.tv_nsec) + ' ';
}

/// What each change of a write-ahead file changes in its index: a counter, and the checksum of what
/// was written last (sqlite.org/walformat.html). The file's own length stays, and its time is as
/// coarse as the kernel's. The file stays open until the process ends: closing one descriptor of it
/// would drop all locks that SQLite has on it for this process (fcntl(2)).
std::string index_mark(const std::string& path) {
    std::array<char, 48> header{};
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0 || read(file, header.data(), header.size()) <= 0) return NO_FILE;
    return std::string(header.data(), header.size());
}

}  // namespace

std::string state_mark(long long now) {
    std::string mark = std::string(RECORDER_VERSION) + ' ' + std::to_string(now / 60);
    for (const char* name : {"/config.db", "/backupd.db"}) {
        const std::string database = standalone::state_folder() + name;
        const std::string log = file_mark(database + "-wal");
        mark += file_mark(database) + log;
        if (log != NO_FILE) mark += index_mark(database + "-shm");
    }
    return standalone::quick_digest(mark);
}

}  // namespace console
