// Who the recorder is, and whether this process is that user.
#include "tools/recorderctl/recorder_user.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"

namespace recorderctl {

std::string user_name(uid_t user) {
    const passwd* account = getpwuid(user);
    return account != nullptr ? account->pw_name : std::to_string(user);
}

void require_own_state() {
    const std::string folder = standalone::state_folder();
    struct stat found {};
    if (stat(folder.c_str(), &found) != 0) {
        if (errno == EACCES)
            throw Failure("needs root: " + folder + " is out of sight for user " +
                          user_name(geteuid()));
        return;
    }
    if (found.st_uid != geteuid())
        throw Failure("needs root: the recorder's state in " + folder + " belongs to user " +
                      user_name(found.st_uid));
}

}  // namespace recorderctl
