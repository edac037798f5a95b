// Refuses a process the system calls by which it reaches other processes and what outlives it.
#pragma once

namespace services {

/// From now on the kernel refuses (EPERM), and for good, what the other parts of the fence leave to
/// a process of the same user: modes, owners, times and attributes of files that it cannot open;
/// limits, priorities, signals and memory of other processes; memory that outlives it; new
/// namespaces and rings of calls; words put into a terminal; a socket that makes whoever closes it
/// wait (SO_LINGER), which might be the one that it was sent to. Needs no_new_privs.
/// @throws std::system_error
void filter_calls();

}  // namespace services
