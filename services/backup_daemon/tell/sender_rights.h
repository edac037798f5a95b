// Takes from a process that sends alerts what it does not need.
#pragma once

namespace services {

/// The calling process, and whatever it runs, has no capability from now on and gets none by
/// running a program, leaves no dump of its memory, which holds passwords, and takes no more memory
/// than alerts need, whatever a server has it read.
/// @throws std::system_error
void keep_sender_rights();

}  // namespace services
