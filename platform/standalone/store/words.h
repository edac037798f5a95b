// Numbers and texts as a sequence of bytes that tells whether it is whole and undamaged.
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

namespace standalone {

/// Puts numbers and texts together, each in words of eight bytes in this machine's order.
class WordWriter {
public:
    void number(long long value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }

    /// Its length, then its bytes, filled up with zeros.
    void text(std::string_view value);

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

/// Takes them apart again. What is not there throws std::out_of_range.
class WordReader {
public:
    /// @param bytes outlive the reader
    explicit WordReader(std::string_view bytes) : left_(bytes) {}

    long long number() {
        long long value = 0;
        std::memcpy(&value, take(sizeof value).data(), sizeof value);
        return value;
    }
    std::string text();

private:
    std::string_view take(std::size_t count) {
        if (count > left_.size()) throw std::out_of_range("more words than there are");
        const std::string_view taken(left_.data(), count);
        left_.remove_prefix(count);
        return taken;
    }

    std::string_view left_;
};

/// The words with what opened() knows them by: `magic`, their length and a checksum.
std::string sealed(long long magic, const WordWriter& words);

/// @param sealed outlives the reader
/// @throws std::invalid_argument when the bytes are not all that sealed() made, and nothing else
WordReader opened(long long magic, std::string_view sealed);

}  // namespace standalone
