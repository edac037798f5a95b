// Mounts that no other process sees, and that do no harm to the one that made them.
#include "platform/private_mounts.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The same right lets a process mount and have a view of its own. Where a filter refuses the view
/// alone, that must not be taken for a process which cannot mount either.
bool may_mount() {
    __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{};
    if (syscall(SYS_capget, &header, sets) != 0) return true;
    return (sets[CAP_TO_INDEX(CAP_SYS_ADMIN)].effective & CAP_TO_MASK(CAP_SYS_ADMIN)) != 0;
}

}  // namespace

int enter_private_mounts() {
    if (!may_mount()) return 0;
    if (unshare(CLONE_NEWNS) != 0) return -1;
    return mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
}

int restrict_mount(const char* mount_point) {
    // Whoever serves the files is not asked.
    constexpr int HOW = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    struct statx found {};
    if (statx(AT_FDCWD, mount_point, HOW, 0, &found) != 0) return -1;
    if ((found.stx_attributes & STATX_ATTR_MOUNT_ROOT) == 0) return 0;
    mount_attr restricted{};
    restricted.attr_set = MOUNT_ATTR_NOSUID | MOUNT_ATTR_NODEV | MOUNT_ATTR_NOEXEC;
    return mount_setattr(AT_FDCWD, mount_point, AT_RECURSIVE | AT_SYMLINK_NOFOLLOW, &restricted,
                         sizeof restricted);
}
