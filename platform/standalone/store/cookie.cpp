// Reads a browser's cookies.
#include "platform/standalone/store/cookie.h"

#include <algorithm>

namespace standalone {

std::string_view take_piece(std::string_view& rest, char separator) {
    const std::string_view piece = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(piece.size() + 1, rest.size()));
    return piece;
}

std::optional<std::string> find_cookie(std::string_view cookies, std::string_view name) {
    while (!cookies.empty()) {
        std::string_view value = take_piece(cookies, ';');
        value.remove_prefix(std::min(value.find_first_not_of(" \t"), value.size()));
        if (take_piece(value, '=') != name) continue;
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        return std::string(value);
    }
    return {};
}

}  // namespace standalone
