// Says on one line of standard error what a program cannot do.
#pragma once

#include <string>

namespace standalone {

/// Prints "program: what". Whatever names are in it, it stays on one line and is UTF-8.
void complain(const std::string& program, const std::string& what);

/// The same of a command line that the program does not understand, with a hint to --help.
void complain_of_misuse(const std::string& program, const std::string& what);

}  // namespace standalone
