// Finds the bytes of a text that are no UTF-8 and replaces them.
#include "services/utf8.h"

#include <cstddef>

namespace services {
namespace {

constexpr char REPLACEMENT[] = "\xEF\xBF\xBD";

struct Lead {
    unsigned char first, last;             // range of the first byte
    unsigned char second_min, second_max;  // range of the second byte
    std::size_t length;                    // bytes of the character
};

// RFC 3629, section 4; bytes after the second are always 80 to BF.
constexpr Lead LEADS[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

bool between(char byte, unsigned char low, unsigned char high) {
    const auto value = static_cast<unsigned char>(byte);
    return low <= value && value <= high;
}

/// Bytes of the character that `text` begins with, 0 when it begins with none.
std::size_t character_length(std::string_view text) {
    if (between(text[0], 0x00, 0x7F)) return 1;
    for (const Lead& lead : LEADS) {
        if (!between(text[0], lead.first, lead.last)) continue;
        if (text.size() < lead.length || !between(text[1], lead.second_min, lead.second_max))
            return 0;
        for (std::size_t i = 2; i < lead.length; ++i)
            if (!between(text[i], 0x80, 0xBF)) return 0;
        return lead.length;
    }
    return 0;
}

}  // namespace

std::string valid_utf8(std::string_view text) {
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        if (length == 0)
            valid += REPLACEMENT;
        else
            valid += text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return valid;
}

}  // namespace services
