// Reads a browser's cookies.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace standalone {

/// The value of a cookie as RFC 6265 section 4.2.1 has the browser send it; of several of that name
/// the first.
/// @param cookies the header's value
std::optional<std::string> find_cookie(std::string_view cookies, std::string_view name);

/// Takes the text up to `separator` off the front of `rest`, the separator with it.
std::string_view take_piece(std::string_view& rest, char separator);

}  // namespace standalone
