// Copies text into the fixed buffers of C interfaces.
#include "platform/standalone/store/text_buffer.h"

#include "platform/standalone/store/utf8.h"

namespace standalone {

void copy_text(std::string_view text, char* buf, std::size_t size) {
    const std::string_view fitting = text.size() < size ? text : cut_utf8(text, size - 1);
    const std::size_t length = fitting.copy(buf, fitting.size());
    buf[length] = '\0';
}

}  // namespace standalone
