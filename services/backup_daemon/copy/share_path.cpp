// Names and paths on a share: what an SMB server takes as a name, and how names are joined.
#include "services/backup_daemon/copy/share_path.h"

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cwctype>
#include <stdexcept>

#include "platform/standalone/store/utf8.h"

namespace services {
namespace {

bool is_forbidden(char byte) {
    return static_cast<unsigned char>(byte) < ' ' || byte == '\x7f' ||
           std::string_view("\\/:*?\"<>|").find(byte) != std::string_view::npos;
}

/// Names that mean devices on some servers, also with an extension behind them.
bool is_device(std::string_view name) {
    std::string stem(name.substr(0, name.find('.')));
    while (stem.ends_with(' ')) stem.pop_back();
    std::ranges::transform(stem, stem.begin(), [](unsigned char c) { return std::toupper(c); });
    if (stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL") return true;
    return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) &&
           stem[3] >= '1' && stem[3] <= '9';
}

/// Cut to the longest length, not inside a character.
void cut(std::string& name) {
    if (name.size() <= LONGEST_NAME) return;
    std::size_t end = LONGEST_NAME;
    while ((static_cast<unsigned char>(name[end]) & 0xc0) == 0x80) --end;
    name.resize(end);
}

void end_well(std::string& name) {
    cut(name);
    if (name.back() == '.' || name.back() == ' ') name.back() = '_';
}

/// What is a letter, whatever language the machine speaks.
locale_t all_letters() {
    static const locale_t letters = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    if (letters == nullptr) throw std::runtime_error("the system has no locale C.UTF-8");
    return letters;
}

/// The character that `text` begins with, which is valid UTF-8; takes it off.
char32_t next_character(std::string_view& text) {
    const auto first = static_cast<unsigned char>(text[0]);
    std::size_t length = 1;
    if (first >= 0xc0) length = first < 0xe0 ? 2 : first < 0xf0 ? 3 : 4;
    char32_t character = length == 1 ? first : first & (0x7fU >> length);
    for (const char byte : text.substr(1, length - 1))
        character = character << 6 | (static_cast<unsigned char>(byte) & 0x3f);
    text.remove_prefix(length);
    return character;
}

void append(std::string& text, char32_t character) {
    const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
    if (character < 0x80) return add(character);
    if (character < 0x800) {
        add(0xc0 | character >> 6);
    } else {
        if (character < 0x10000) {
            add(0xe0 | character >> 12);
        } else {
            add(0xf0 | character >> 18);
            add(0x80 | (character >> 12 & 0x3f));
        }
        add(0x80 | (character >> 6 & 0x3f));
    }
    add(0x80 | (character & 0x3f));
}

/// Upper case first: some letters have two small forms.
char32_t small(char32_t letter) {
    const wint_t capital = towupper_l(static_cast<wint_t>(letter), all_letters());
    return static_cast<char32_t>(towlower_l(capital, all_letters()));
}

}  // namespace

std::string safe_name(std::string_view name) {
    std::string safe = standalone::valid_utf8(name);
    std::ranges::replace_if(safe, is_forbidden, '_');
    if (safe.empty()) return "_";
    end_well(safe);
    if (!is_device(safe)) return safe;
    safe.insert(std::min(safe.find('.'), safe.size()), "_");
    end_well(safe);  // the longest ones have become longer
    return safe;
}

std::string folded(std::string_view path) {
    const std::string valid = standalone::valid_utf8(path);
    std::string text;
    text.reserve(valid.size());
    for (std::string_view left = valid; !left.empty();) append(text, small(next_character(left)));
    return text;
}

std::string join_path(const std::string& one, const std::string& other) {
    return one.empty() || other.empty() ? one + other : one + "/" + other;
}

std::string folder_of(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

}  // namespace services
