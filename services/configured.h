// Reads what administrators configure of the services, afresh each time.
#pragma once

#include <string>

namespace services {

/// The text of a key; "" when the key is absent or cannot be read.
std::string configured_text(const char* section, const char* key);

/// The same, where a wrong "" would cost something.
/// @throws std::runtime_error when the key cannot be read; an absent one is ""
std::string configured_text_or_throw(const char* section, const char* key);

/// The number of a key: decimal, at least 1. A key that is absent, cannot be read or says anything
/// else means `otherwise`: nobody loses by a slip of the pen.
int configured_number(const char* section, const char* key, int otherwise);

}  // namespace services
