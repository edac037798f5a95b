// What the fuzz targets share: their entry point, how a broken promise ends them, pieces of texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

/// Gives the code under test one input. Each target defines it; libFuzzer or replay.cpp calls it.
/// @return 0
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// Ends the program when a promise of the code under test is broken, as a sanitizer would.
/// @param promise what is promised, for whoever reads the report
inline void check(bool kept, const char* promise) {
    if (kept) return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

/// The input as a text, on the heap and no byte longer, so that a read behind its end is found.
inline std::string text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Takes the part up to `separator` off the front of `rest`; all of it when there is none.
inline std::string_view take_piece(std::string_view& rest, char separator) {
    const std::size_t end = rest.find(separator);
    const std::string_view piece = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return piece;
}

/// The number that a piece begins with, 0 when there is none.
inline long long number(std::string_view piece) {
    return std::strtoll(std::string(piece).c_str(), nullptr, 10);
}

/// All parts of a text, which has to outlive them; "" has one, which is empty.
inline std::vector<std::string_view> pieces(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
        end = text.find(separator, begin);
        parts.push_back(text.substr(begin, end - begin));
    }
    return parts;
}

}  // namespace fuzz
