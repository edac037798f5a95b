// Whether the recorder's state may have changed, told without reading it.
#include "console/state_mark.h"

#include <sys/stat.h>

#include "platform/standalone/store/digest.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/version.h"

namespace console {

namespace {

/// Every change is a write to one of the two files (sqlite.org/wal.html).
std::string file_mark(const std::string& path) {
    struct stat file {};
    // An empty log is as good as none: whoever reads first makes one.
    if (stat(path.c_str(), &file) != 0 || file.st_size == 0) return "none ";
    return std::to_string(file.st_ino) + ' ' + std::to_string(file.st_size) + ' ' +
           std::to_string(file.st_mtim.tv_sec) + ' ' + std::to_string(file.st_mtim.tv_nsec) + ' ';
}

}  // namespace

std::string state_mark(long long now) {
    std::string mark = std::string(RECORDER_VERSION) + ' ' + std::to_string(now / 60);
    for (const char* name : {"/config.db", "/config.db-wal", "/backupd.db", "/backupd.db-wal"})
        mark += file_mark(standalone::state_folder() + name);
    return standalone::quick_digest(mark);
}

}  // namespace console
