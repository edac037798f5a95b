// Reads a password from a file that nobody else can read.
#pragma once

#include <string>

namespace services {

/// The file's first line. The file belongs to this process's user, who alone may read it, or to
/// root, who may let a group read it.
/// @throws std::runtime_error with one line that names the file, never what is in it
std::string password_of_file(const std::string& path);

}  // namespace services
