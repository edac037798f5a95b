// Keeps a text that others wrote on the one line of a log where it belongs.
#pragma once

#include <string>
#include <string_view>

namespace standalone {

/// Copies `text` with its control characters, U+0080 to U+009F among them, spelt out, tabs apart: a
/// line end as `\n`, a carriage return as `\r`, any other one as its number, `\x1B`. A text without
/// them stays as it is.
std::string one_line(std::string_view text);

}  // namespace standalone
