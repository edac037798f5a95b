// Keeps a text that others wrote on the one line of a log where it belongs.
#include "platform/standalone/store/one_line.h"

namespace standalone {

namespace {

constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

bool is_control(unsigned char byte) {
    return byte != '\t' && (byte < ' ' || byte == 0x7F);
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
    for (const char byte : text) {
        if (is_control(static_cast<unsigned char>(byte)))
            spell_out(static_cast<unsigned char>(byte), line);
        else
            line += byte;
    }
    return line;
}

}  // namespace standalone
