// The arguments of an event as JSON: an array of texts, each of any bytes.
#pragma once

#include <json-c/json.h>

#include <optional>
#include <string>
#include <vector>

namespace standalone {

/// @return owned by the caller
json_object* new_event_arguments(const std::vector<std::string>& arguments);

/// @param array of any kind, or null; it is not kept
/// @return nothing when it is anything but an array of texts
std::optional<std::vector<std::string>> read_event_arguments(json_object* array);

}  // namespace standalone
