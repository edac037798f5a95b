// Signs what web hooks get, so that they know whom it is from.
#pragma once

#include <string>
#include <string_view>

namespace services {

/// HMAC-SHA256 (RFC 2104), in hexadecimal.
/// @throws std::runtime_error when the library fails
std::string hmac_sha256(std::string_view secret, std::string_view text);

}  // namespace services
