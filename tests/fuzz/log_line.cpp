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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    const std::string line = standalone::one_line(text);
    check(std::ranges::none_of(line, is_control), "a line has no control characters");
    check((line == text) == std::ranges::none_of(text, is_control), "nothing else is spelt out");
    check(line.size() <= 4 * text.size(), "four bytes spell one out");
    check(!fuzz::is_utf8_text(text) || fuzz::is_utf8_text(line), "of UTF-8 comes UTF-8");
    return 0;
}
