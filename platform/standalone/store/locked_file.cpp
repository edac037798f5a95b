// Keeps a file's pages in memory, however seldom they are used.
#include "platform/standalone/store/locked_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "platform/standalone/store/file_handle.h"

namespace standalone {

LockedFile::LockedFile(const std::string& path) {
    const FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct stat found {};
    if (!file || fstat(file.get(), &found) != 0) return;
    const auto size = static_cast<std::size_t>(found.st_size);
    void* pages = mmap(nullptr, size, PROT_READ, MAP_SHARED, file.get(), 0);
    if (pages == MAP_FAILED) return;
    if (mlock(pages, size) != 0) {
        munmap(pages, size);
        return;
    }
    pages_ = pages;
    size_ = size;
}

LockedFile::~LockedFile() {
    if (pages_ != nullptr) munmap(pages_, size_);
}

}  // namespace standalone
