// Reads a folder of the machine's entry by entry, and keeps what went wrong on the way.
#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <memory>

namespace standalone {

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

/// An open folder, or none.
struct Folder {
    std::unique_ptr<DIR, CloseFolder> handle;
    int error = 0;  ///< errno that kept it from being opened or, so far, from being read to its end

    explicit operator bool() const { return handle != nullptr; }
    int descriptor() const { return dirfd(handle.get()); }
};

/// Opens `name` in the folder whose descriptor is `parent`, or AT_FDCWD.
/// @param follow O_NOFOLLOW, or 0 when the name may be a symbolic link
Folder open_folder(int parent, const char* name, int follow);

/// Whether there is no folder of the name: nothing, or a file or link in its place.
bool is_absent(const Folder& folder);

/// The next entry of an open folder; null behind the last one, and when the disk fails.
const dirent* next_entry(Folder& folder);

/// A file's or a clock's time in nanoseconds.
inline long long nanoseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/// Looks at an entry, not through a symbolic link.
/// @return whether there is such a file; one that has gone since it was listed is no error
bool look_at(Folder& folder, const char* name, struct stat& found);

/// Whether an entry is of a kind: DT_DIR, DT_REG.
bool has_kind(Folder& folder, const dirent& entry, unsigned char kind);

}  // namespace standalone
