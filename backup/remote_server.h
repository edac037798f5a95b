// The server test's credentials file and rate.
#pragma once

#include <string>

/// Writes a credentials file (mount.cifs(8)) with mode 0600. It is made under a new name and
/// renamed, so that a link planted at `path` is replaced and its target left alone, and a test
/// under way never reads half a file.
/// @return whether it was written whole; otherwise `path` is as it was
bool write_credentials(const char* path, const char* username, const char* password);

/// The rate of copying 5 MiB.
/// @param begin milliseconds
/// @param end milliseconds
/// @return bytes per second in decimal, truncated; "-2147483648" when that does not fit 32 bits, as
///         after a copy that took no time
std::string transfer_rate(unsigned long long begin, unsigned long long end);
