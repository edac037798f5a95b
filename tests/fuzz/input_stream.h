// A text as a stream, for what reads the output of programs.
#pragma once

#include <cstdio>
#include <string>

#include "tests/fuzz/fuzz.h"

namespace fuzz {

/// Reads `text`, which has to outlive it, from its beginning.
class InputStream {
public:
    explicit InputStream(const std::string& text)
        : file_(fmemopen(const_cast<char*>(text.data()), text.size(), "r")) {
        check(file_ != nullptr, "a text can be read as a stream");
    }
    ~InputStream() { std::fclose(file_); }
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;

    std::FILE* get() const { return file_; }

private:
    std::FILE* file_;
};

}  // namespace fuzz
