// Keeps a text that others wrote on the one line of a log where it belongs.
#include "platform/standalone/store/one_line.h"

namespace standalone {

namespace {

constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

bool is_control(unsigned char byte) {
    return byte != '\t' && (byte < ' ' || byte == 0x7F);
}

/// In UTF-8, what has one byte from 0x80 to 0x9F in Latin-1: terminals obey these, too.
bool is_late_control(std::string_view text) {
    return text.size() >= 2 && text[0] == '\xC2' && static_cast<unsigned char>(text[1]) >= 0x80 &&
           static_cast<unsigned char>(text[1]) < 0xA0;
}

void spell_out(unsigned char byte, std::string& line) {
    if (byte == '\n')
        line += "\\n";
    else if (byte == '\r')
        line += "\\r";
    else
        line.append("\\x").append({HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 15]});
}

}  // namespace

std::string one_line(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool late = is_late_control(text.substr(at));
        if (late) ++at;  // its number is the second byte
        const auto byte = static_cast<unsigned char>(text[at]);
        if (late || is_control(byte))
            spell_out(byte, line);
        else
            line += text[at];
    }
    return line;
}

}  // namespace standalone
