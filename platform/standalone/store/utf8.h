// Which bytes of a text are UTF-8 (RFC 3629: no overlong forms, no surrogates, up to U+10FFFF).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace standalone {

/// Whether the whole text is UTF-8.
bool is_utf8(std::string_view text);

/// Copies `text` with each byte that is part of no character replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

/// The longest beginning of `text` that has at most `most` bytes and cuts no character. A byte that
/// is part of none stands for itself.
std::string_view cut_utf8(std::string_view text, std::size_t most);

}  // namespace standalone
