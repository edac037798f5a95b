// Keeps a file's pages in memory, however seldom they are used.
#pragma once

#include <cstddef>
#include <string>

namespace standalone {

/// As long as it lives, the kernel drops nothing of what the file has now. Who writes a part of a
/// page that was dropped waits until the disk has read the rest.
/// A file that is missing or empty, and one beyond what the process may lock (RLIMIT_MEMLOCK), is
/// left as it is: that costs time and nothing else.
class LockedFile {
public:
    explicit LockedFile(const std::string& path);
    ~LockedFile();
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

private:
    void* pages_ = nullptr;  ///< never read: the file may become shorter
    std::size_t size_ = 0;
};

}  // namespace standalone
