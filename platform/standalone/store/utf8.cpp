// Tells characters from bytes that are none.
#include "platform/standalone/store/utf8.h"

#include <algorithm>

namespace standalone {
namespace {

constexpr char REPLACEMENT[] = "\xEF\xBF\xBD";

struct Range {
    unsigned char low;
    unsigned char high;
};

/// One form of characters beyond ASCII.
struct Form {
    Range first;   ///< byte
    Range second;  ///< byte
    std::size_t length;
};

// RFC 3629, section 4.
constexpr Range ASCII = {0x00, 0x7F};
constexpr Range CONTINUATION = {0x80, 0xBF};
constexpr Form FORMS[] = {
    {{0xC2, 0xDF}, CONTINUATION, 2}, {{0xE0, 0xE0}, {0xA0, 0xBF}, 3},
    {{0xE1, 0xEC}, CONTINUATION, 3}, {{0xED, 0xED}, {0x80, 0x9F}, 3},
    {{0xEE, 0xEF}, CONTINUATION, 3}, {{0xF0, 0xF0}, {0x90, 0xBF}, 4},
    {{0xF1, 0xF3}, CONTINUATION, 4}, {{0xF4, 0xF4}, {0x80, 0x8F}, 4},
};

bool is_in(const Range& range, char byte) {
    const auto value = static_cast<unsigned char>(byte);
    return range.low <= value && value <= range.high;
}

bool has_form(std::string_view text, const Form& form) {
    if (text.size() < form.length || !is_in(form.second, text[1])) return false;
    const std::string_view rest = text.substr(2, form.length - 2);
    return std::ranges::all_of(rest, [](char byte) { return is_in(CONTINUATION, byte); });
}

/// Bytes of the character that `text` begins with, 0 when it begins with none.
std::size_t character_length(std::string_view text) {
    if (is_in(ASCII, text[0])) return 1;
    for (const Form& form : FORMS)
        if (is_in(form.first, text[0])) return has_form(text, form) ? form.length : 0;
    return 0;
}

}  // namespace

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

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

std::string_view cut_utf8(std::string_view text, std::size_t most) {
    std::size_t end = 0;
    while (end < text.size()) {
        const std::size_t length = std::max<std::size_t>(character_length(text.substr(end)), 1);
        if (end + length > most) break;
        end += length;
    }
    return text.substr(0, end);
}

}  // namespace standalone
