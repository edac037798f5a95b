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
    SourceFile(standalone::FileHandle file, std::string name, long long size);

    long long size() const { return size_; }

    /// Reads exactly `size` bytes at `offset`.
    /// @throws CopyFailure source: they cannot be read, or the file has become shorter
    void read(long long offset, char* data, std::size_t size) const;

private:
    standalone::FileHandle file_;
    std::string name_;
    long long size_;
};

}  // namespace services
