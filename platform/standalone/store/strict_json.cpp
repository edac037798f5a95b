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

/// Whether a number begins at a place outside strings.
bool begins_number(const std::string& text, std::size_t at) {
    constexpr std::string_view FIRST = "0123456789+-.";
    constexpr std::string_view INNER = "0123456789+-.eE";
    if (FIRST.find(text[at]) == std::string_view::npos) return false;
    return at == 0 || INNER.find(text[at - 1]) == std::string_view::npos;
}

/// Whether a number begins otherwise than with one digit, or several of which the first is no zero.
bool is_odd_number(const char* number) {
    const char* digits = *number == '-' ? number + 1 : number;
    return !is_digit(digits[0]) || (digits[0] == '0' && is_digit(digits[1]));
}

/// Whether an extension begins at a place outside strings.
bool begins_extension(const std::string& text, std::size_t at) {
    const char* here = text.c_str() + at;
    const bool quote_or_word = *here == '\'' || *here == 'N' || *here == 'I';
    const bool point_without_digits = *here == '.' && !is_digit(here[1]);
    return quote_or_word || point_without_digits ||
           (begins_number(text, at) && is_odd_number(here));
}

/// Whether a name is written with a zero in it. json-c keeps what stands before.
bool has_cut_name(const std::string& text) {
    constexpr std::string_view ZERO = "\\u0000";
    if (text.find(ZERO) == std::string::npos) return false;  // as nearly always
    bool in_string = false;
    bool has_zero = false;  // the string that was read last
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (in_string && text[at] == '\\') {
            has_zero = has_zero || text.compare(at, ZERO.size(), ZERO) == 0;
            ++at;
        } else if (text[at] == '"') {
            in_string = !in_string;
            has_zero = has_zero && !in_string;
        } else if (!in_string && text[at] == ':' && has_zero) {
            return true;
        }
    }
    return false;
}

/// json-c lets pass, even in strict mode: names in single quotes, control characters inside
/// strings, numbers like -01, 00, 01.5, -.5 and 1., and the words NaN and Infinity.
bool has_json_c_extension(const std::string& text) {
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at];
        if (in_string) {
            if (static_cast<unsigned char>(byte) < 0x20) return true;
            if (byte == '\\') ++at;
        } else if (begins_extension(text, at)) {
            return true;
        }
        if (byte == '"') in_string = !in_string;
    }
    return false;
}

/// How many members the text writes: each has its colon, and no other stands outside strings.
std::size_t written_members(const std::string& text) {
    std::size_t members = 0;
    bool in_string = false;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (in_string && text[at] == '\\')
            ++at;
        else if (text[at] == '"')
            in_string = !in_string;
        else if (!in_string && text[at] == ':')
            ++members;
    }
    return members;
}

/// How many members a value holds, at any depth. json-c keeps one of each name.
std::size_t kept_members(json_object* value) {
    std::size_t members = 0;
    if (json_object_is_type(value, json_type_object)) {
        json_object_object_foreach(value, name, member) {
            static_cast<void>(name);
            members += 1 + kept_members(member);
        }
    } else if (json_object_is_type(value, json_type_array)) {
        for (std::size_t at = 0; at < json_object_array_length(value); ++at)
            members += kept_members(json_object_array_get_idx(value, at));
    }
    return members;
}

}  // namespace

JsonPtr parse_whole_object(const std::string& text) {
    if (text.size() > INT32_MAX) return nullptr;
    const std::unique_ptr<json_tokener, FreeTokener> tokener(json_tokener_new_ex(DEEPEST));
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
    JsonPtr object(
        json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    const bool whole = json_tokener_get_error(tokener.get()) == json_tokener_success &&
                       json_tokener_get_parse_end(tokener.get()) == text.size();
    if (!whole || !json_object_is_type(object.get(), json_type_object)) return nullptr;
    return object;
}

JsonPtr parse_strict_object(const std::string& text) {
    if (has_json_c_extension(text) || !is_utf8(text) || has_cut_name(text)) return nullptr;
    JsonPtr object = parse_whole_object(text);
    if (!object || kept_members(object.get()) != written_members(text)) return nullptr;
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
