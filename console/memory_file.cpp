// Files that are nowhere but in memory, for what a tool reads and writes.
#include "console/memory_file.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

namespace console {

standalone::FileHandle memory_file(const std::string& text) {
    standalone::FileHandle file(memfd_create("console", MFD_CLOEXEC));
    const auto size = static_cast<ssize_t>(text.size());
    if (!file || fchmod(file.get(), 0600) != 0 ||
        pwrite(file.get(), text.data(), text.size(), 0) != size)
        throw std::runtime_error("cannot make a file in memory");
    return file;
}

}  // namespace console
