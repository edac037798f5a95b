// A lock that processes of one user share, and that nobody else can take or keep.
#include "backup/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "backup/own_file.h"

namespace {

/// A file that others can open they can lock, too, for as long as they like.
bool is_private(const Descriptor& file) {
    struct stat found {};
    return fstat(file.get(), &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == geteuid() &&
           (found.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

Descriptor locked_file(const char* path) {
    Descriptor file(open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    const bool locked = file && is_private(file) && flock(file.get(), LOCK_EX) == 0;
    return locked ? std::move(file) : Descriptor();
}

}  // namespace

FileLock::FileLock(std::string path) : path_(std::move(path)) {
    // A file that was removed with another's lock keeps nobody out.
    do {
        file_ = locked_file(path_.c_str());
    } while (file_ && !is_name_of(path_.c_str(), file_));
}

FileLock::~FileLock() {
    // Before the lock is given up: what is at the path may be another's lock afterwards.
    if (file_) unlink(path_.c_str());
}
