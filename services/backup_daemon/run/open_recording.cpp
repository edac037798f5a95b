// Opens a recording for a process that may not do so itself.
#include "services/backup_daemon/run/open_recording.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

using standalone::FileHandle;

[[noreturn]] void fail(const std::string& name) {
    const int error = errno;
    const bool gone = error == ENOENT || error == ENOTDIR;
    throw CopyFailure(gone ? FailureKind::gone : FailureKind::source,
                      name + ": " + std::strerror(error));
}

FileHandle open_below(int folder, const std::string& path, std::uint64_t flags) {
    open_how how{};
    how.flags = flags | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    return FileHandle(
        static_cast<int>(syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how)));
}

/// Who owns a folder may have linked anybody's file into it, and where the other name is replaced
/// later, nothing about the file tells.
bool may_read(const struct stat& folder, const struct stat& file) {
    return folder.st_uid == 0 || folder.st_uid == file.st_uid || (file.st_mode & S_IROTH) ||
           (folder.st_gid == file.st_gid && (file.st_mode & S_IRGRP));
}

long long nanoseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

}  // namespace

OpenRecording open_recording(const std::string& recordings, const std::string& path) {
    const std::string name = recordings + "/" + path;
    const FileHandle channel(open(recordings.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!channel) fail(name);
    const std::string inner = folder_of(path);
    const FileHandle folder =
        open_below(channel.get(), inner.empty() ? "." : inner, O_PATH | O_DIRECTORY);
    if (!folder) fail(name);
    // O_NONBLOCK is for what a recording is not: opening a pipe would wait for somebody who writes.
    FileHandle file =
        open_below(folder.get(), path.substr(path.rfind('/') + 1), O_RDONLY | O_NONBLOCK);
    struct stat lies_in {};
    struct stat found {};
    if (!file || fstat(folder.get(), &lies_in) != 0 || fstat(file.get(), &found) != 0) fail(name);
    if (!S_ISREG(found.st_mode)) throw CopyFailure(FailureKind::source, name + " is not a file");
    if (!may_read(lies_in, found))
        throw CopyFailure(FailureKind::source, name + " is not its folder's owner's to read");
    return {
        .file = std::move(file), .size = found.st_size, .modified_ns = nanoseconds(found.st_mtim)};
}

}  // namespace services
