// JSON as RFC 8259 has it, and nothing beyond: json-c's own strictness leaves gaps.
#pragma once

#include <json-c/json.h>

#include <string>

#include "platform/json_ptr.h"

namespace standalone {

using ::JsonPtr;

/// @return the object that the whole of `text` is; null when it is anything else
JsonPtr parse_strict_object(const std::string& text);

/// Prints without blanks and without escaped slashes.
std::string print_json(json_object* object);

}  // namespace standalone
