// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace standalone {

/// A file descriptor that is closed with its owner; -1 is none.
class FileHandle {
public:
    explicit FileHandle(int descriptor = -1) : descriptor_(descriptor) {}
    FileHandle(FileHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    FileHandle& operator=(FileHandle&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~FileHandle() { close(); }

    int get() const { return descriptor_; }
    explicit operator bool() const { return descriptor_ >= 0; }
    void close() {
        if (descriptor_ >= 0) ::close(descriptor_);
        descriptor_ = -1;
    }
    int release() { return std::exchange(descriptor_, -1); }

private:
    int descriptor_;
};

}  // namespace standalone
