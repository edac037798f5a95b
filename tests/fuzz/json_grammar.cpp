// The grammar of RFC 8259, by recursive descent.
#include "tests/fuzz/json_grammar.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace fuzz {

namespace {

constexpr int DEEPEST = 1000;  // beyond that the judge's own stack might end

class Grammar {
public:
    explicit Grammar(std::string_view text) : rest_(text) {}

    Verdict judge() {
        blanks();
        verdict_.is_object = rest_.starts_with('{');
        verdict_.is_json = value(0) && rest_.empty();
        return verdict_;
    }

private:
    bool take(char byte) {
        if (!rest_.starts_with(byte)) return false;
        rest_.remove_prefix(1);
        return true;
    }

    bool take_any(std::string_view bytes) {
        if (rest_.empty() || bytes.find(rest_[0]) == std::string_view::npos) return false;
        rest_.remove_prefix(1);
        return true;
    }

    bool word(std::string_view text) {
        if (!rest_.starts_with(text)) return false;
        rest_.remove_prefix(text.size());
        return true;
    }

    void blanks() {
        while (take_any(" \t\r\n")) continue;
    }

    bool digits() {
        if (!take_any("0123456789")) return false;
        while (take_any("0123456789")) continue;
        return true;
    }

    bool number() {
        take('-');
        if (!take('0') && !digits()) return false;
        if (take('.') && !digits()) return false;
        if (!take_any("eE")) return true;
        take_any("+-");
        return digits();
    }

    bool escape() {
        if (!take('u')) return take_any("\"\\/bfnrt");
        for (int digit = 0; digit < 4; ++digit)
            if (!take_any("0123456789abcdefABCDEF")) return false;
        return true;
    }

    bool string() {
        if (!take('"')) return false;
        while (!rest_.empty() && static_cast<unsigned char>(rest_[0]) >= ' ') {
            if (take('"')) return true;
            const bool fits = take('\\') ? escape() : take(rest_[0]);
            if (!fits) return false;
        }
        return false;
    }

    using Names = std::vector<std::string_view>;

    bool name(Names& names) {
        const std::string_view before = rest_;
        if (!string()) return false;
        const std::string_view written = before.substr(0, before.size() - rest_.size());
        verdict_.repeats_a_name |= std::ranges::find(names, written) != names.end();
        verdict_.names_unknown |= written.find('\\') != std::string_view::npos;
        verdict_.names_unknown |= names.size() == MOST_NAMES;
        if (names.size() < MOST_NAMES) names.push_back(written);
        return true;
    }

    bool member(Names& names, int depth) {
        if (!name(names)) return false;
        blanks();
        if (!take(':')) return false;
        blanks();
        return value(depth);
    }

    bool members(int depth) {
        Names names;
        blanks();
        if (take('}')) return true;
        while (member(names, depth)) {
            if (take('}')) return true;
            if (!take(',')) return false;
            blanks();
        }
        return false;
    }

    bool elements(int depth) {
        blanks();
        if (take(']')) return true;
        while (value(depth)) {
            if (take(']')) return true;
            if (!take(',')) return false;
            blanks();
        }
        return false;
    }

    /// A value and the blanks behind it.
    bool value(int depth) {
        if (!bare_value(depth)) return false;
        blanks();
        return true;
    }

    bool bare_value(int depth) {
        if (rest_.starts_with('"')) return string();
        if (word("true") || word("false") || word("null")) return true;
        if (!rest_.starts_with('{') && !rest_.starts_with('[')) return number();
        if (depth == DEEPEST) return false;
        verdict_.depth = std::max(verdict_.depth, depth + 1);
        return take('{') ? members(depth + 1) : take('[') && elements(depth + 1);
    }

    static constexpr std::size_t MOST_NAMES = 100;  // kept of one object; all would take too long

    std::string_view rest_;
    Verdict verdict_;
};

/// Bytes of the character that begins so; 0 when none does.
int character_bytes(unsigned char first) {
    if (first < 0x80) return 1;
    if (first < 0xC0 || first >= 0xF8) return 0;
    if (first < 0xE0) return 2;
    return first < 0xF0 ? 3 : 4;
}

/// Takes one character off the front.
/// @return its number, and how many bytes it took; no bytes when there is none
std::uint32_t take_character(std::string_view& text, int& bytes) {
    const auto first = static_cast<unsigned char>(text[0]);
    const int wanted = character_bytes(first);
    bytes = 0;
    if (wanted == 0 || text.size() < static_cast<std::size_t>(wanted)) return 0;
    std::uint32_t number = wanted == 1 ? first : first & (0x7FU >> wanted);
    for (int i = 1; i < wanted; ++i) {
        const auto next = static_cast<unsigned char>(text[static_cast<std::size_t>(i)]);
        if ((next & 0xC0) != 0x80) return 0;
        number = number << 6 | (next & 0x3F);
    }
    bytes = wanted;
    text.remove_prefix(static_cast<std::size_t>(bytes));
    return number;
}

}  // namespace

Verdict judge_json(std::string_view text) {
    return is_utf8_text(text) ? Grammar(text).judge() : Verdict();
}

bool is_utf8_text(std::string_view text) {
    constexpr std::uint32_t LEAST[] = {0, 0, 0x80, 0x800, 0x10000};
    while (!text.empty()) {
        int bytes = 0;
        const std::uint32_t number = take_character(text, bytes);
        const bool surrogate = number >= 0xD800 && number < 0xE000;
        if (bytes == 0 || number < LEAST[bytes] || number > 0x10FFFF || surrogate) return false;
    }
    return true;
}

}  // namespace fuzz
