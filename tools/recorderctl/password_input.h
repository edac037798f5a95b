// Reads a password from standard input.
#pragma once

#include <string>

namespace recorderctl {

/// Reads the first line of standard input. On a terminal it asks, and does not show what is typed.
/// @throws Failure when the line is missing or empty
std::string read_password();

}  // namespace recorderctl
