// Reads a folder of the machine's entry by entry, and keeps what went wrong on the way.
#include "platform/standalone/store/folder_reader.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/standalone/store/file_handle.h"

namespace standalone {

Folder open_folder(int parent, const char* name, int follow) {
    FileHandle handle(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow));
    Folder folder;
    folder.handle.reset(handle ? fdopendir(handle.get()) : nullptr);
    if (folder)
        handle.release();
    else
        folder.error = errno;
    return folder;
}

bool is_absent(const Folder& folder) {
    return folder.error == ENOENT || folder.error == ENOTDIR || folder.error == ELOOP;
}

/// Only errno tells the end of a folder from a disk that fails on the way there.
const dirent* next_entry(Folder& folder) {
    errno = 0;
    const dirent* entry = readdir(folder.handle.get());
    if (!entry && errno != 0) folder.error = errno;
    return entry;
}

bool look_at(Folder& folder, const char* name, struct stat& found) {
    if (fstatat(folder.descriptor(), name, &found, AT_SYMLINK_NOFOLLOW) == 0) return true;
    if (errno != ENOENT) folder.error = errno;
    return false;
}

bool has_kind(Folder& folder, const dirent& entry, unsigned char kind) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == kind;
    struct stat found {};
    return look_at(folder, entry.d_name, found) && IFTODT(found.st_mode) == kind;
}

}  // namespace standalone
