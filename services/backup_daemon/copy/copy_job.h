// What a copier is asked to do with one file.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/copy/side_file.h"

namespace services {

/// What is recorded of a copy: the state in which it is this recorder's to replace.
struct RecordedCopy {
    long long size = 0;                      ///< bytes
    std::optional<long long> modified_ns{};  ///< time on the share; nothing when it is not known
    std::string sha256{};                    ///< of its content; "" when nobody knows
    bool doubted = false;                    ///< it may have another content than that
    long long source_modified_ns = 0;        ///< the recording's last write when it was made
};

/// One file to copy. Paths on the share are relative to it.
struct CopyJob {
    std::string recordings;  ///< the channel's folder on this machine
    std::string source;      ///< path of the recording below it
    std::string target;      ///< on the share
    std::string temporary;   ///< on the share, in the same folder
    std::string claim;       ///< content by which this recorder knows a name that it has claimed
    bool fresh = false;      ///< just now nothing had the target's name, and nothing was begun
    std::optional<RecordedCopy> recorded;
    long long offset = 0;       ///< so much of the temporary file is right ...
    std::string prefix_sha256;  ///< ... which has this hash; "" when nobody knows
    bool check = true;          ///< read everything back and compare before it gets its name
    std::optional<SideFile> side_file;
};

}  // namespace services
