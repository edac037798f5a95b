// Has the debug lines that a test causes stand in its output, not in the machine's debug file.
#include <iostream>

#include "platform/recorder_log.h"
#include "platform/standalone/debug_file.h"

// The linker puts the wrapper in front of DebugFile::append(), under names of its own.
void real_append(standalone::DebugFile* file, std::string_view line) __asm__(
    "__real__ZN10standalone9DebugFile6appendESt17basic_string_viewIcSt11char_traitsIcEE");
void wrapped_append(standalone::DebugFile* file, std::string_view line) __asm__(
    "__wrap__ZN10standalone9DebugFile6appendESt17basic_string_viewIcSt11char_traitsIcEE");

void wrapped_append(standalone::DebugFile* file, std::string_view line) {
    if (file->path() == RECORDER_DEBUG_FILE) {
        std::cerr << line;
    } else {
        real_append(file, line);
    }
}
