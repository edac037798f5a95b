// Takes from a copying process every right that its work does not need, once and for good.
#pragma once

namespace services {

/// Bytes of address space that a fenced process may take beyond what it has at the beginning.
inline constexpr unsigned long long FENCED_MEMORY = 512ULL * 1024 * 1024;

/// Fences the calling process in. It talks with a server that nobody vouches for, through a library
/// of a million lines: whatever takes it over gets
///   - no capability, and none by running a program; root without them is one more user;
///   - no way to write, make, rename or delete a file, and none to read one but the system's own
///     libraries and settings, where the kernel knows Landlock;
///   - no connection over TCP but to the share's port, where the kernel is 6.7 or later;
///   - no hold on other processes, nor on modes and times of files (lane/call_filter.h);
///   - no memory beyond FENCED_MEMORY, no further process unless it is root's, few descriptors;
///   - no dump of its memory, which holds passwords.
/// @param port of the share; 0: none
/// @throws std::system_error when a part of the fence does not stand
void fence_in(int port);

}  // namespace services
