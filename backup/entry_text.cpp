// Prints the members of an entry.
#include "backup/entry_text.h"

#include <algorithm>
#include <cstring>

namespace {

/// Whether json-c prints the character with a backslash.
bool is_escaped(unsigned char c) {
    return c < ' ' || c == '"' || c == '\\' || c == '/';
}

}  // namespace

void EntryText::begin(const char* key) {
    text_ += text_.size() == 1 ? " \"" : ", \"";
    text_ += key;
    text_ += "\": ";
}

void EntryText::add(const char* key, const std::string& text) {
    if (std::none_of(text.begin(), text.end(), is_escaped)) {
        add_word(key, text);
        return;
    }
    const auto length = static_cast<int>(text.size());
    add(key, JsonPtr(json_object_new_string_len(text.data(), length)));
}

void EntryText::add(const char* key, long long value) {
    begin(key);
    text_ += std::to_string(value);
}

void EntryText::add(const char* key, bool value) {
    begin(key);
    text_ += value ? "true" : "false";
}

void EntryText::add(const char* key, const JsonPtr& value) {
    begin(key);
    std::size_t length = 0;
    const char* json =
        json_object_to_json_string_length(value.get(), JSON_C_TO_STRING_SPACED, &length);
    text_.append(json, length);
}

void EntryText::add_word(const char* key, std::string_view word) {
    begin(key);
    text_ += '"';
    text_ += word;
    text_ += '"';
}

void EntryText::add_printed(const char* key, const std::string& json) {
    begin(key);
    text_ += json;
}

void EntryText::move_into(json_object* object) {
    text_ += " }";
    json_object_set_serializer(object, json_object_userdata_to_json_string, strdup(text_.c_str()),
                               json_object_free_userdata);
}
