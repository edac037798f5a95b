// Copies text into the fixed buffers of the platform's interfaces.
#include "platform/standalone/text_buffer.h"

namespace standalone {

void copy_text(std::string_view text, char* buf, std::size_t size) {
    std::size_t length = text.size();
    if (length >= size) {
        length = size - 1;
        const auto continues = [&text](std::size_t at) {
            return (static_cast<unsigned char>(text[at]) & 0xc0) == 0x80;
        };
        // A character has three continuation bytes at most; longer runs are no UTF-8 and are just
        // cut.
        std::size_t start = length;
        while (start > 0 && length - start < 3 && continues(start)) --start;
        if (!continues(start)) length = start;
    }
    text.copy(buf, length);
    buf[length] = '\0';
}

}  // namespace standalone
