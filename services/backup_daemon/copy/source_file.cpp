// The local file that is copied, up to the size that it had when it was opened.
#include "services/backup_daemon/copy/source_file.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "services/backup_daemon/copy/copy_failure.h"

namespace services {

SourceFile::SourceFile(standalone::FileHandle file, std::string name, long long size,
                       long long modified_ns)
    : file_(std::move(file)), name_(std::move(name)), size_(size), modified_ns_(modified_ns) {
    posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
}

void SourceFile::read(long long offset, char* data, std::size_t size) const {
    while (size > 0) {
        const ssize_t got = pread(file_.get(), data, size, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw CopyFailure(FailureKind::source, name_ + ": " + std::strerror(errno));
        if (got == 0) throw CopyFailure(FailureKind::source, name_ + " has become shorter");
        data += got;
        size -= static_cast<std::size_t>(got);
        offset += got;
    }
}

}  // namespace services
