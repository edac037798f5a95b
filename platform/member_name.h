// A member's name in JSON that is written as text.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

/// How json-c calls the two ways to print: with blanks around names and values, or without.
enum class JsonLayout { spaced, plain };

/// A name with what stands around it before the value, comma included; put together by the
/// compiler.
template <JsonLayout layout>
class MemberName {
public:
    /// @param name a literal that needs no escapes
    template <std::size_t N>
    consteval MemberName(const char (&name)[N]) : length_(N - 1 + OPEN.size() + CLOSE.size()) {
        char* at = std::ranges::copy(OPEN, text_.begin()).out;
        at = std::copy_n(name, N - 1, at);
        std::ranges::copy(CLOSE, at);
    }

    std::string_view text() const { return {text_.data(), length_}; }

private:
    static constexpr bool BLANKS = layout == JsonLayout::spaced;
    static constexpr std::string_view OPEN = BLANKS ? ", \"" : ",\"";
    static constexpr std::string_view CLOSE = BLANKS ? "\": " : "\":";

    std::array<char, 32> text_{};
    std::size_t length_;
};
