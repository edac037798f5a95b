// Shuts a process off from this machine, for good, where the kernel can (Landlock, Linux 5.13).
#pragma once

namespace services {

/// From now on the process cannot open, make, run, rename or delete any file, but reads what the
/// system's libraries need: themselves and their settings. What it has open, or is handed, stays
/// open. Nor can it send a signal to another process or trace one. Needs no_new_privs. Kernels
/// before 6.2 let it shorten what it may write otherwise, those before 6.12 send signals.
/// @return false: this kernel has no Landlock, or it is turned off, and nothing has changed
/// @throws std::system_error
bool shut_off();

}  // namespace services
