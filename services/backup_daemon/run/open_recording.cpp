// Opens a recording for a process that may not do so itself.
#include "services/backup_daemon/run/open_recording.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>

#include "services/backup_daemon/copy/copy_failure.h"

namespace services {
namespace {

using standalone::FileHandle;

[[noreturn]] void fail(const std::string& name) {
    const int error = errno;
    const bool gone = error == ENOENT || error == ENOTDIR;
    throw CopyFailure(gone ? FailureKind::gone : FailureKind::source,
                      name + ": " + std::strerror(error));
}

FileHandle open_below(int folder, const std::string& path) {
    open_how how{};
    // O_NONBLOCK is for what a recording is not: opening a pipe would wait for somebody who writes.
    how.flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    return FileHandle(
        static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

long long nanoseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

OpenRecording open_recording(const std::string& recordings, const std::string& path) {
    const std::string name = recordings + "/" + path;
    const FileHandle folder(open(recordings.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!folder) fail(name);
    FileHandle file = open_below(folder.get(), path);
    struct stat found {};
    if (!file || fstat(file.get(), &found) != 0) fail(name);
    if (!S_ISREG(found.st_mode)) throw CopyFailure(FailureKind::source, name + " is not a file");
    return {
        .file = std::move(file), .size = found.st_size, .modified_ns = nanoseconds(found.st_mtim)};
}

}  // namespace services
