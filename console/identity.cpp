// Gives up what the state folder's owner does not need.
#include "console/identity.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/standalone/store/state_folder.h"

namespace {

void require(bool done) {
    if (!done) std::abort();
}

/// Without a folder there is nothing to serve, and nobody to be.
bool is_roots_folder() {
    struct stat folder {};
    return stat(standalone::state_folder().c_str(), &folder) == 0 && folder.st_uid == 0;
}

void drop_capabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    require(syscall(SYS_capset, &header, none) == 0);
}

}  // namespace

void take_owner_identity() {
    const uid_t owner = geteuid();
    require(owner != 0 || is_roots_folder());
    require(setresuid(owner, owner, owner) == 0);
    // Root's programs would have root's capabilities back, were it not for this.
    require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
    drop_capabilities();
    // Whoever starts the program could have it make files that it cannot open again.
    umask(077);
}
