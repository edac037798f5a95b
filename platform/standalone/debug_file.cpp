// Appends lines to a debug file that several processes share and that never grows without bound.
#include "platform/standalone/debug_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace standalone {

namespace {

void make_folders_above(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), 0700);
}

std::string folder_of(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

constexpr int HOW_TO_OPEN = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// A process that is root for the moment leaves the file to whoever the folder belongs to, whose
/// next process has lines of its own.
FileHandle make_file(const std::string& path) {
    FileHandle file(::open(path.c_str(), HOW_TO_OPEN | O_CREAT | O_EXCL, 0600));
    struct stat folder {};
    if (file && geteuid() == 0 && stat(folder_of(path).c_str(), &folder) == 0) {
        [[maybe_unused]] const int unchecked = fchown(file.get(), folder.st_uid, folder.st_gid);
    }
    return file;
}

FileHandle open_for_append(const std::string& path) {
    FileHandle file(::open(path.c_str(), HOW_TO_OPEN));
    if (file || errno != ENOENT) return file;
    file = make_file(path);
    // Another process made it meanwhile.
    return !file && errno == EEXIST ? FileHandle(::open(path.c_str(), HOW_TO_OPEN))
                                    : std::move(file);
}

/// Lines go to a file of the folder's owner that has no second name: who may write to the folder
/// must not lead them to a file of somebody else. A second name alone can be gone again when the
/// names are counted.
bool is_a_log(const struct stat& found, const std::string& path) {
    struct stat folder {};
    return S_ISREG(found.st_mode) && found.st_nlink == 1 &&
           stat(folder_of(path).c_str(), &folder) == 0 && found.st_uid == folder.st_uid;
}

}  // namespace

/// Whether the open file is still the one at the path: another process may have put it aside.
bool DebugFile::is_current(long long& size) const {
    struct stat named {};
    if (!file_ || lstat(path_.c_str(), &named) != 0) return false;
    size = named.st_size;
    return named.st_dev == device_ && named.st_ino == inode_;
}

bool DebugFile::open() {
    file_ = open_for_append(path_);
    if (!file_ && errno == ENOENT) {
        make_folders_above(path_);
        file_ = open_for_append(path_);
    }
    struct stat opened {};
    if (!file_ || fstat(file_.get(), &opened) != 0 || !is_a_log(opened, path_)) {
        file_.close();
        return false;
    }
    device_ = opened.st_dev;
    inode_ = opened.st_ino;
    return true;
}

/// Several processes may find the file full at once. Only the holder of its lock renames it, and
/// only while it is still the file at the path.
void DebugFile::put_aside() const {
    if (flock(file_.get(), LOCK_EX) != 0) return;
    long long size = 0;
    if (is_current(size)) std::rename(path_.c_str(), (path_ + ".1").c_str());
    flock(file_.get(), LOCK_UN);
}

void DebugFile::append(std::string_view line) {
    long long size = 0;
    if (!is_current(size)) {
        if (!open() || !is_current(size)) return;
    }
    if (size > 0 && size + static_cast<long long>(line.size()) > DEBUG_FILE_LIMIT) {
        put_aside();
        if (!open()) return;
    }
    // A log that cannot be written is left out.
    [[maybe_unused]] const ssize_t written = write(file_.get(), line.data(), line.size());
}

}  // namespace standalone
