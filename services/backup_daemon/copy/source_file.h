// The local file that is copied, up to the size that it had when it was opened.
#pragma once

#include <cstddef>
#include <string>

#include "platform/standalone/store/file_handle.h"

namespace services {

/// A recording may grow while it is copied: size and time are those of the moment it was opened,
/// and what is written behind that size later is not seen.
class SourceFile {
public:
    /// Opens a regular file; a symbolic link is not followed.
    /// @throws CopyFailure gone: nothing has that name; source: it cannot be read
    explicit SourceFile(const std::string& path);

    long long size() const { return size_; }                ///< bytes
    long long modified_ns() const { return modified_ns_; }  ///< last write, since the epoch

    /// Reads exactly `size` bytes at `offset`.
    /// @throws CopyFailure source: they cannot be read, or the file has become shorter
    void read(long long offset, char* data, std::size_t size) const;

private:
    std::string path_;
    standalone::FileHandle file_;
    long long size_ = 0;
    long long modified_ns_ = 0;
};

}  // namespace services
