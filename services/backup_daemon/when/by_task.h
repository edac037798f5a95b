// What is known of tasks, by their identifiers.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace services {

/// What is known of one task; nothing when nothing is.
template <typename Value>
std::optional<Value> of_task(const std::map<std::string, Value>& known,
                             const std::string& task_id) {
    const auto found = known.find(task_id);
    if (found == known.end()) return {};
    return found->second;
}

}  // namespace services
