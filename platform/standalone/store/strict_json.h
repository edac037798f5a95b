// JSON as RFC 8259 has it, and nothing beyond: json-c's own strictness leaves gaps.
#pragma once

#include <json-c/json.h>

#include <string>
#include <string_view>

#include "platform/json_ptr.h"

namespace standalone {

using ::JsonPtr;

/// @return the object that the whole of `text` is; null when it is anything else, or when an object
///         in it has two members of one name, of which readers would believe different ones, or a
///         name with a zero in it, of which json-c would keep the beginning
JsonPtr parse_strict_object(const std::string& text);

/// For what this system has written itself: texts in it may be any bytes.
/// @return the object that the whole of `text` is, as json-c reads it, or null
JsonPtr parse_whole_object(const std::string& text);

/// Makes a JSON string of a text. Bytes that are no UTF-8 become U+FFFD.
/// @return owned by the caller
json_object* new_json_text(std::string_view text);

/// Prints without blanks and without escaped slashes.
std::string print_json(json_object* object);

}  // namespace standalone
