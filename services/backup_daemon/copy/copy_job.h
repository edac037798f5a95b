// What a copier is asked to do with one file.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/copy/side_file.h"

namespace services {

/// One file to copy. Paths on the share are relative to it.
struct CopyJob {
    std::string recordings;        ///< the channel's folder on this machine
    std::string source;            ///< path of the recording below it
    std::string target;            ///< on the share
    std::string temporary;         ///< on the share, in the same folder
    long long recorded_size = -1;  ///< size of the copy that is recorded there; -1: none is
    long long offset = 0;          ///< so much of the temporary file is right ...
    std::string prefix_sha256;     ///< ... which has this hash; "" when nobody knows
    bool check = true;             ///< read everything back and compare before it gets its name
    std::optional<SideFile> side_file;
};

}  // namespace services
