// Makes any text valid UTF-8, for replies that must be.
#pragma once

#include <string>
#include <string_view>

namespace services {

/// Copies `text` with each byte that is part of no UTF-8 character (RFC 3629: no overlong forms, no
/// surrogates, nothing above U+10FFFF) replaced by U+FFFD.
std::string valid_utf8(std::string_view text);

}  // namespace services
