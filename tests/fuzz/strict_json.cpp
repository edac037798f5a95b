// The strict reader of JSON against a second opinion: it takes exactly what RFC 8259 allows.
#include "platform/standalone/store/strict_json.h"

#include "platform/standalone/store/utf8.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

constexpr int DEEPEST = 32;  // json-c counts the innermost value, too, when there is one

void check_utf8(const std::string& text) {
    check(standalone::is_utf8(text) == fuzz::is_utf8_text(text), "UTF-8 is what RFC 3629 says");
    const std::string valid = standalone::valid_utf8(text);
    check(fuzz::is_utf8_text(valid), "what is made valid is UTF-8");
    check((valid == text) == fuzz::is_utf8_text(text), "just what is none is replaced");
    const std::size_t most = text.size() / 2;
    const std::string_view cut = standalone::cut_utf8(text, most);
    check(text.starts_with(cut) && cut.size() <= most, "a cut text is a beginning that fits");
    check(!fuzz::is_utf8_text(text) || fuzz::is_utf8_text(cut), "no character is cut");
}

void check_printing(json_object* object) {
    const std::string once = standalone::print_json(object);
    check(fuzz::is_json(once), "what is printed is JSON");
    const auto again = standalone::parse_strict_object(once);
    check(again != nullptr, "what is printed is read");
    check(standalone::print_json(again.get()) == once, "printing it again gives the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    check_utf8(text);
    const auto object = standalone::parse_strict_object(text);
    const fuzz::Verdict verdict = fuzz::judge_json(text);
    const bool is_object = verdict.is_json && verdict.is_object && !verdict.repeats_a_name;
    check(object == nullptr || (is_object && verdict.depth <= DEEPEST),
          "nothing but objects of RFC 8259 is read, and none with a name given twice");
    check(object != nullptr || !is_object || verdict.depth >= DEEPEST || verdict.names_unknown,
          "every such object is read");
    if (object != nullptr) check_printing(object.get());
    return 0;
}
