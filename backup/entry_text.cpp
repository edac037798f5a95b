// Prints the members of an entry.
#include "backup/entry_text.h"

#include <json-c/printbuf.h>

#include <algorithm>
#include <charconv>

namespace {

/// Whether json-c prints the character with a backslash.
bool is_escaped(unsigned char c) {
    return c < ' ' || c == '"' || c == '\\' || c == '/';
}

/// As json-c prints it: control characters are rare enough to ask.
void append_escaped(char c, std::string& text) {
    if (static_cast<unsigned char>(c) >= ' ') {
        text += {'\\', c};
        return;
    }
    const JsonPtr alone(json_object_new_string_len(&c, 1));
    const std::string_view quoted = json_object_to_json_string(alone.get());
    text += quoted.substr(1, quoted.size() - 2);
}

/// Prints a text as it stands, without quotes (json_object_to_json_string_fn).
int print_as_it_stands(json_object* text, printbuf* out, int, int) {
    return printbuf_memappend(out, json_object_get_string(text), json_object_get_string_len(text));
}

}  // namespace

void EntryText::add(const Key& key, std::string_view text) {
    text_ += key.text();
    text_ += '"';
    for (auto rest = text.begin(); true; ++rest) {
        const auto stop = std::find_if(rest, text.end(), is_escaped);
        text_.append(rest, stop);
        if (stop == text.end()) break;
        append_escaped(*stop, text_);
        rest = stop;
    }
    text_ += '"';
}

void EntryText::add(const Key& key, long long value) {
    char digits[24];
    const char* end = std::to_chars(digits, std::end(digits), value).ptr;
    add_printed(key, {digits, end});
}

void EntryText::add_word(const Key& key, std::string_view word) {
    text_ += key.text();
    text_ += '"';
    text_ += word;
    text_ += '"';
}

void EntryText::add_printed(const Key& key, std::string_view json) {
    text_ += key.text();
    text_ += json;
}

JsonPtr EntryText::finish() {
    if (text_.empty()) text_ = ",";
    text_.front() = '{';  // in place of the first member's comma
    text_ += " }";
    JsonPtr entry(json_object_new_string_len(text_.data(), static_cast<int>(text_.size())));
    if (entry) json_object_set_serializer(entry.get(), print_as_it_stands, nullptr, nullptr);
    return entry;
}
