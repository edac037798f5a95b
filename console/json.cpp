// Writes the JSON of replies, and reads that of bodies.
#include "console/json.h"

#include <json-c/json.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "console/refusal.h"
#include "platform/standalone/store/strict_json.h"
#include "platform/standalone/store/utf8.h"

namespace console {

namespace {

/// RFC 8259 section 7; readers of all kinds take the six-character form.
void put_escaped(std::string& out, char byte) {
    constexpr char DIGITS[] = "0123456789abcdef";
    if (byte == '"' || byte == '\\') {
        out.append({'\\', byte});
        return;
    }
    const auto code = static_cast<unsigned char>(byte);
    out.append("\\u00").append({DIGITS[code >> 4], DIGITS[code & 0xF]});
}

constexpr bool needs_escape(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\';
}

constexpr auto STRANGE = [] {
    std::array<bool, 256> strange{};
    for (std::size_t byte = 0; byte < strange.size(); ++byte)
        strange[byte] = byte >= 0x80 || needs_escape(static_cast<char>(byte));
    return strange;
}();

/// As nearly all texts are: of ASCII, without escapes.
bool is_plain(std::string_view text) {
    bool strange = false;
    for (const char byte : text) strange |= STRANGE[static_cast<unsigned char>(byte)];
    return !strange;
}

}  // namespace

void Json::put(std::string_view text) {
    text_ += '"';
    if (is_plain(text)) {
        text_.append(text) += '"';
        return;
    }
    const std::string valid = standalone::valid_utf8(text);
    for (const char byte : valid) {
        if (needs_escape(byte))
            put_escaped(text_, byte);
        else
            text_ += byte;
    }
    text_ += '"';
}

void Json::put(double number) {
    if (!std::isfinite(number)) {
        text_ += "null";
        return;
    }
    std::array<char, 32> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text_.append(digits.data(), end);
}

Body::Body(const std::string& text) : object_(standalone::parse_strict_object(text)) {
    if (!object_)
        throw Refusal{.status = 400, .code = "bad_body", .text = "The body is no JSON object."};
}

bool Body::has(const char* name) const {
    return json_object_object_get_ex(object_.get(), name, nullptr) != 0;
}

std::vector<std::string> Body::names() const {
    std::vector<std::string> names;
    json_object_object_foreach(object_.get(), name, value) {
        static_cast<void>(value);
        names.emplace_back(name);
    }
    return names;
}

bool Body::is_null(const char* name) const {
    json_object* member = nullptr;
    return json_object_object_get_ex(object_.get(), name, &member) != 0 && member == nullptr;
}

std::string Body::text(const char* name, std::size_t most) const {
    json_object* member = json_object_object_get(object_.get(), name);
    if (!json_object_is_type(member, json_type_string))
        throw bad_field(name, "This has to be a text.");
    std::string text(json_object_get_string(member),
                     static_cast<std::size_t>(json_object_get_string_len(member)));
    if (text.size() > most || text.find('\0') != std::string::npos)
        throw bad_field(name, "This text is too long, or has a zero in it.");
    return text;
}

int Body::number(const char* name, int low, int high) const {
    json_object* member = json_object_object_get(object_.get(), name);
    const long long number = json_object_get_int64(member);
    if (!json_object_is_type(member, json_type_int) || number < low || number > high)
        throw bad_field(name, "This has to be a whole number from " + std::to_string(low) + " to " +
                                  std::to_string(high) + ".");
    return static_cast<int>(number);
}

}  // namespace console
