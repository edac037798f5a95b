// The range of paths that lie in one folder, for queries that an index answers.
#pragma once

#include <string>

namespace services {

/// The first text behind all those that begin with `folder`, which ends with a slash.
inline std::string behind(std::string folder) {
    folder.back() = '/' + 1;
    return folder;
}

}  // namespace services
