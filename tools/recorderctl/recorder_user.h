// Who the recorder is, and whether this process is that user.
#pragma once

#include <sys/types.h>

#include <string>

namespace recorderctl {

/// The account's name, or its number when it has none.
std::string user_name(uid_t user);

/// Makes sure that the state folder, if there is one, is this process's own.
/// @throws Failure when only root or its owner could work on it
void require_own_state();

}  // namespace recorderctl
