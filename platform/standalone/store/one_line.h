// Keeps a text that others wrote on the one line of a log where it belongs.
#pragma once

#include <string>
#include <string_view>

namespace standalone {

/// Copies `text` with its control characters spelt out, tabs apart: a line end as `\n`, a carriage
/// return as `\r`, any other one as its byte, `\x1B`. A text without them stays as it is.
std::string one_line(std::string_view text);

}  // namespace standalone
