// JSON as RFC 8259 has it, and nothing beyond: json-c's own strictness leaves gaps.
#include "platform/standalone/store/strict_json.h"

#include "platform/standalone/store/utf8.h"

namespace standalone {

namespace {

constexpr int DEEPEST = 32;

struct FreeTokener {
    void operator()(json_tokener* tokener) const { json_tokener_free(tokener); }
};

bool is_digit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// Names in single quotes, the words NaN and Infinity, numbers like 1. and -01.
bool is_json_c_extension(const std::string& text, std::size_t at) {
    const char byte = text[at];
    const char next = at + 1 < text.size() ? text[at + 1] : '\0';
    if (byte == '\'' || byte == 'N' || byte == 'I') return true;
    if (byte == '.') return !is_digit(next);
    return byte == '-' && next == '0' && at + 2 < text.size() && is_digit(text[at + 2]);
}

/// json-c lets these pass, even in strict mode, and control characters inside strings.
bool has_json_c_extension(const std::string& text) {
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at];
        if (in_string) {
            if (static_cast<unsigned char>(byte) < 0x20) return true;
            if (byte == '\\') ++at;
        } else if (is_json_c_extension(text, at)) {
            return true;
        }
        if (byte == '"') in_string = !in_string;
    }
    return false;
}

}  // namespace

JsonPtr parse_strict_object(const std::string& text) {
    if (text.size() > INT32_MAX || has_json_c_extension(text) || !is_utf8(text)) return nullptr;
    const std::unique_ptr<json_tokener, FreeTokener> tokener(json_tokener_new_ex(DEEPEST));
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
    JsonPtr object(
        json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    const bool whole = json_tokener_get_error(tokener.get()) == json_tokener_success &&
                       json_tokener_get_parse_end(tokener.get()) == text.size();
    if (!whole || !json_object_is_type(object.get(), json_type_object)) return nullptr;
    return object;
}

json_object* new_json_text(std::string_view text) {
    const std::string valid = valid_utf8(text);
    return json_object_new_string_len(valid.data(), static_cast<int>(valid.size()));
}

std::string print_json(json_object* object) {
    return json_object_to_json_string_ext(object,
                                          JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

}  // namespace standalone
