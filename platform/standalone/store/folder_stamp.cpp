// What tells whether the names in a folder are still those that were read.
#include "platform/standalone/store/folder_stamp.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/statfs.h>

#include <cstdlib>
#include <ctime>

#include "platform/standalone/store/folder_reader.h"

namespace standalone {

namespace {

constexpr long long SECOND = 1'000'000'000;

// The coarsest of the file systems below keeps whole seconds (ext with inodes of 128 bytes), and
// the clock may be set back unseen twice: between a look and one that adds to it, and after that.
constexpr long long SETTLED_AFTER = 2 * SECOND;
constexpr long long UNSEEN_STEP = SECOND / 4;

// Not in the kernel's list for programs.
constexpr long XFS_MAGIC = 0x58465342;

FolderStamp stamp_from(const struct stat& found) {
    return {.device = static_cast<long long>(found.st_dev),
            .inode = static_cast<long long>(found.st_ino),
            .modified_ns = nanoseconds(found.st_mtim),
            .changed_ns = nanoseconds(found.st_ctim),
            .names = static_cast<long long>(found.st_nlink),
            .size = found.st_size};
}

bool has_stamp(int parent, const std::string& name, const FolderStamp& stamp, int flags) {
    struct stat found {};
    return stamp.inode != 0 && fstatat(parent, name.c_str(), &found, flags) == 0 &&
           stamp_from(found) == stamp;
}

long long read_clock(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return nanoseconds(time);
}

}  // namespace

Moment Moment::now() {
    const long long now = read_clock(CLOCK_REALTIME);
    return {now, now - read_clock(CLOCK_BOOTTIME)};
}

FolderStamp stamp_of(const Folder& folder, const Moment& looked_at) {
    struct stat found {};
    if (fstat(folder.descriptor(), &found) != 0 || !keeps_change_times(folder.descriptor()))
        return {};
    return settled_stamp(found, looked_at);
}

bool keeps_change_times(int folder) {
    struct statfs found {};
    if (fstatfs(folder, &found) != 0) return false;
    return found.f_type == EXT4_SUPER_MAGIC || found.f_type == XFS_MAGIC ||
           found.f_type == BTRFS_SUPER_MAGIC || found.f_type == TMPFS_MAGIC;
}

FolderStamp settled_stamp(const struct stat& found, const Moment& looked_at) {
    const FolderStamp stamp = stamp_from(found);
    return stamp.changed_ns > looked_at.now_ns - SETTLED_AFTER ? FolderStamp() : stamp;
}

bool has_stamp(const std::string& path, const FolderStamp& stamp, bool follow) {
    return has_stamp(AT_FDCWD, path, stamp, follow ? 0 : AT_SYMLINK_NOFOLLOW);
}

bool has_stamp(int parent, const std::string& name, const FolderStamp& stamp) {
    return has_stamp(parent, name, stamp, AT_SYMLINK_NOFOLLOW);
}

bool has_run_on(const Moment& from, const Moment& to) {
    return to.now_ns >= from.now_ns && std::llabs(to.boot_ns - from.boot_ns) <= UNSEEN_STEP;
}

}  // namespace standalone
