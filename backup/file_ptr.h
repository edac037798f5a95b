// Owns a stdio stream.
#pragma once

#include <cstdio>
#include <memory>

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;
