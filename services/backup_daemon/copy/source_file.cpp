// The local file that is copied, up to the size that it had when it was opened.
#include "services/backup_daemon/copy/source_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "services/backup_daemon/copy/copy_failure.h"

namespace services {
namespace {

// O_NONBLOCK is for what a recording is not: opening a pipe would wait for somebody who writes.
constexpr int HOW_TO_OPEN = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;

[[noreturn]] void fail(const std::string& path, int error) {
    const bool gone = error == ENOENT || error == ENOTDIR;
    throw CopyFailure(gone ? FailureKind::gone : FailureKind::source,
                      path + ": " + std::strerror(error));
}

}  // namespace

SourceFile::SourceFile(const std::string& path)
    : path_(path), file_(::open(path.c_str(), HOW_TO_OPEN)) {
    struct stat found {};
    if (!file_ || fstat(file_.get(), &found) != 0) fail(path_, errno);
    if (!S_ISREG(found.st_mode)) throw CopyFailure(FailureKind::source, path_ + " is not a file");
    size_ = found.st_size;
    modified_ns_ =
        static_cast<long long>(found.st_mtim.tv_sec) * 1'000'000'000 + found.st_mtim.tv_nsec;
    posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

void SourceFile::read(long long offset, char* data, std::size_t size) const {
    while (size > 0) {
        const ssize_t got = pread(file_.get(), data, size, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(path_, errno);
        if (got == 0) throw CopyFailure(FailureKind::source, path_ + " has become shorter");
        data += got;
        size -= static_cast<std::size_t>(got);
        offset += got;
    }
}

}  // namespace services
