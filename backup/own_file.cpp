// Files of our own in folders where others can plant theirs.
#include "backup/own_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool is_own(int file) {
    struct stat found {};
    return fstat(file, &found) == 0 && S_ISREG(found.st_mode) && found.st_uid == geteuid() &&
           found.st_nlink == 1;
}

}  // namespace

Descriptor create_own_file(const char* path) {
    // One step puts it there: another request may be making its own in the same place.
    std::string fresh = std::string(path) + "-XXXXXX";
    Descriptor file(mkostemp(fresh.data(), O_CLOEXEC));
    if (!file || std::rename(fresh.c_str(), path) == 0) return file;
    unlink(fresh.c_str());
    return Descriptor();
}

FilePtr open_own_file(const char* path) {
    // A FIFO would hold the opening up until somebody writes.
    Descriptor file(open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file || !is_own(file.get())) return nullptr;
    return open_stream(std::move(file), "r");
}

bool is_name_of(const char* path, const Descriptor& file) {
    struct stat named {};
    struct stat opened {};
    return lstat(path, &named) == 0 && fstat(file.get(), &opened) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}
