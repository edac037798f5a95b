// Owns a stdio stream.
#pragma once

#include <cstdio>
#include <memory>

#include "backup/descriptor.h"

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

/// Makes a stream of a descriptor, which it then owns.
/// @param mode as fopen(3) has it; must fit how the descriptor was opened
/// @return null when there is no descriptor
inline FilePtr open_stream(Descriptor descriptor, const char* mode) {
    FilePtr stream(descriptor ? fdopen(descriptor.get(), mode) : nullptr);
    if (stream) descriptor.release();
    return stream;
}
