// SHA-256 of texts that are only to be known again.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace standalone {

/// Two lower-case digits a byte.
std::string hex(std::span<const unsigned char> bytes);

/// The SHA-256 of a text, as hex() has it.
std::string sha256_hex(std::string_view text);

/// Sixteen digits that change with a text, for whoever holds no secret: SipHash with a known key,
/// ten times as fast.
std::string quick_digest(std::string_view text);

}  // namespace standalone
