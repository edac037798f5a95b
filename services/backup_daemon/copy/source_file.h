// The local file that is copied, up to the size that it had when it was opened.
#pragma once

#include <cstddef>
#include <string>

#include "platform/standalone/store/file_handle.h"

namespace services {

/// A recording may grow while it is copied: what is written behind the size that it had when it was
/// opened is not seen.
class SourceFile {
public:
    /// @param file open for reading, a regular file
    /// @param name for the words of a failure
    /// @param size bytes that it had when it was opened
    /// @param modified_ns its last write then, nanoseconds since the epoch
    SourceFile(standalone::FileHandle file, std::string name, long long size,
               long long modified_ns);

    long long size() const { return size_; }
    long long modified_ns() const { return modified_ns_; }

    /// Reads exactly `size` bytes at `offset`.
    /// @throws CopyFailure source: they cannot be read, or the file has become shorter
    void read(long long offset, char* data, std::size_t size) const;

private:
    standalone::FileHandle file_;
    std::string name_;
    long long size_;
    long long modified_ns_;
};

}  // namespace services
