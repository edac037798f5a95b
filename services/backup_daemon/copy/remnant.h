// What is left of a file that a server took and lost part of, with its power.
#pragma once

#include <algorithm>
#include <string_view>

namespace services {

/// Whether nothing is found but what was written, or its beginning, and zeros in the place of the
/// rest: file systems note how long a file is before all of it is on the disk, and give zeros for
/// what is not.
inline bool is_remnant(std::string_view found, std::string_view written) {
    const auto is_left = [](char left, char byte) { return left == byte || left == '\0'; };
    return found.size() <= written.size() &&
           std::equal(found.begin(), found.end(), written.begin(), is_left);
}

}  // namespace services
