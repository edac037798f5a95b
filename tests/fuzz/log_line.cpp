// Texts of others in a log: whatever they are, they stay on the line where they belong.
#include <algorithm>

#include "platform/standalone/store/one_line.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

bool is_control(unsigned char byte) {
    return (byte < ' ' && byte != '\t') || byte == 0x7F;
}

/// The controls of Latin-1's upper half, as UTF-8 has them.
bool is_late_control(unsigned char first, unsigned char second) {
    return first == 0xC2 && second >= 0x80 && second < 0xA0;
}

bool has_control(const std::string& text) {
    return std::ranges::any_of(text, is_control) ||
           std::ranges::adjacent_find(text, is_late_control) != text.end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    const std::string line = standalone::one_line(text);
    check(!has_control(line), "a line has no control characters");
    check((line == text) == !has_control(text), "nothing else is spelt out");
    check(line.size() <= 4 * text.size(), "four bytes spell one out");
    check(!fuzz::is_utf8_text(text) || fuzz::is_utf8_text(line), "of UTF-8 comes UTF-8");
    return 0;
}
