// Shuts a process off from this machine, for good, where the kernel can (Landlock, Linux 5.13).
#pragma once

namespace services {

/// From now on the process cannot open, make, run, rename or delete any file, but reads what the
/// system's libraries need: themselves and their settings. What it has open, or is handed, stays
/// open. It connects over TCP to one port alone, on whatever machine, and to those of name servers
/// and Kerberos; not to this machine's abstract sockets. Nor can it send a signal to another
/// process or trace one. Needs no_new_privs. Kernels before 6.2 let it shorten what it may write
/// otherwise, those before 6.7 connect to any port, those before 6.12 send signals and connect to
/// abstract sockets. Shortening and signals call_filter.h refuses on all of them.
/// @param port 0: none
/// @return false: this kernel has no Landlock, or it is turned off, and nothing has changed
/// @throws std::system_error
bool shut_off(int port);

}  // namespace services
