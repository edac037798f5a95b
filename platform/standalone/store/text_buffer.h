// Copies text into the fixed buffers of C interfaces.
#pragma once

#include <cstddef>
#include <string_view>

namespace standalone {

/// Copies `text` into `buf` with a NUL behind it, cut to the longest run of whole UTF-8 characters
/// that fits.
/// @param size bytes in `buf`, at least 1
void copy_text(std::string_view text, char* buf, std::size_t size);

}  // namespace standalone
