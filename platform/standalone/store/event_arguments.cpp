// The arguments of an event as JSON: an array of texts, each of any bytes.
#include "platform/standalone/store/event_arguments.h"

namespace standalone {

json_object* new_event_arguments(const std::vector<std::string>& arguments) {
    json_object* array = json_object_new_array();
    for (const std::string& text : arguments)
        json_object_array_add(
            array, json_object_new_string_len(text.data(), static_cast<int>(text.size())));
    return array;
}

std::optional<std::vector<std::string>> read_event_arguments(json_object* array) {
    if (!json_object_is_type(array, json_type_array)) return {};
    std::vector<std::string> arguments;
    for (std::size_t at = 0; at < json_object_array_length(array); ++at) {
        json_object* text = json_object_array_get_idx(array, at);
        if (!json_object_is_type(text, json_type_string)) return {};
        arguments.emplace_back(json_object_get_string(text),
                               static_cast<std::size_t>(json_object_get_string_len(text)));
    }
    return arguments;
}

}  // namespace standalone
