// The one question that a CGI program takes from a terminal.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string_view>

/// Whether a person at a terminal asks which program this is, by "--version" alone. A web server
/// may hand a query over as an argument (RFC 3875, section 4.4), but never without a method, nor
/// from a terminal.
inline bool asks_for_version(int count, char** arguments) {
    return count == 2 && std::string_view(arguments[1]) == "--version" &&
           std::getenv("REQUEST_METHOD") == nullptr && isatty(STDIN_FILENO) == 1;
}
