// Says on one line of standard error what a program cannot do.
#include "platform/standalone/store/complain.h"

#include <iostream>

#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/utf8.h"

namespace standalone {

void complain(const std::string& program, const std::string& what) {
    std::cerr << program << ": " << one_line(valid_utf8(what)) << '\n';
}

void complain_of_misuse(const std::string& program, const std::string& what) {
    complain(program, what + "; see --help");
}

}  // namespace standalone
