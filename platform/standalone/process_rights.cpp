// The recorder's user is whoever owns the state folder.
#include "platform/process_rights.h"

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "platform/standalone/store/state_folder.h"

namespace {

void require(bool done) {
    if (!done) std::abort();
}

}  // namespace

void take_recorder_identity() {
    if (geteuid() != 0) return;
    struct stat folder {};
    if (stat(standalone::state_folder().c_str(), &folder) != 0) {
        require(setresuid(getuid(), getuid(), getuid()) == 0);
        return;
    }
    if (folder.st_uid == 0) return;
    const gid_t starters = getgid();
    require(setgroups(1, &starters) == 0);
    require(setresgid(starters, folder.st_gid, folder.st_gid) == 0);
    require(setresuid(0, folder.st_uid, 0) == 0);
}

void give_up_root() {
    const uid_t user = geteuid();
    require(setresuid(user, user, user) == 0);
}
