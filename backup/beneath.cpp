// Reaches what lies below a folder, and nothing outside it, whatever a server offers there.
#include "backup/beneath.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>

namespace {

// A rename or mount anywhere on the machine can disturb a look-up with "..", which then has to be
// made again.
constexpr int MAX_TRIES = 100;

int open_beneath(int folder, const char* path, open_how how) {
    how.flags |= O_CLOEXEC | O_NOFOLLOW;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
    return static_cast<int>(syscall(SYS_openat2, folder, path, &how, sizeof how));
}

bool is_regular(const Descriptor& file) {
    struct stat found {};
    return fstat(file.get(), &found) == 0 && S_ISREG(found.st_mode);
}

}  // namespace

Beneath::Beneath(const char* folder)
    : folder_(open(folder, O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)) {}

Descriptor Beneath::reach(const std::string& path, int flags, mode_t mode) const {
    const open_how how{.flags = static_cast<__u64>(flags), .mode = mode, .resolve = 0};
    int found = -1;
    for (int tries = 0; tries < MAX_TRIES && found < 0; ++tries) {
        found = open_beneath(folder_.get(), path.c_str(), how);
        if (errno != EAGAIN) break;
    }
    return Descriptor(found);
}

bool Beneath::has(const std::string& path) const {
    return static_cast<bool>(reach(path, O_PATH));
}

int Beneath::make_folder(const std::string& path) const {
    const std::size_t slash = path.rfind('/');
    const std::string above = slash == std::string::npos ? "." : path.substr(0, slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const Descriptor parent = reach(above, O_PATH | O_DIRECTORY);
    return parent ? mkdirat(parent.get(), name.c_str(), 0777) : -1;
}

FilePtr Beneath::create_file(const std::string& name) const {
    Descriptor file = reach(name, O_RDWR | O_CREAT | O_TRUNC, 0666);
    // What is written into a FIFO goes nowhere, and the writer waits.
    if (!file || !is_regular(file)) return nullptr;
    return open_stream(std::move(file), "wb+");
}

void Beneath::remove(const std::string& name) const {
    unlinkat(folder_.get(), name.c_str(), 0);
}
