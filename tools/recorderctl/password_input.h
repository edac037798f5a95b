// Reads a password from standard input.
#pragma once

#include <string>

namespace recorderctl {

/// Reads the first line of standard input. On a terminal it asks, and does not show what is typed.
/// @throws Failure when the line is missing or empty
std::string read_password();

/// The same for a password of an account of this recorder.
/// @throws Failure, also when it has less than ten characters
std::string read_account_password();

}  // namespace recorderctl
