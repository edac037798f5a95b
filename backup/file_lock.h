// A lock that processes of one user share, and that nobody else can take or keep.
#pragma once

#include <string>

#include "backup/descriptor.h"

/// Holds a lock: a file that is there while somebody has the lock or waits for it.
class FileLock {
public:
    /// Waits until no other process has the lock.
    /// @param path of the file, in a folder where only the effective user can make files
    explicit FileLock(std::string path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// @return false when the lock could not be had: the file cannot be made, or what lies there
    ///         others could lock
    explicit operator bool() const { return static_cast<bool>(file_); }

private:
    std::string path_;
    Descriptor file_;
};
