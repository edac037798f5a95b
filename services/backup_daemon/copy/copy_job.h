// What a copier is asked to do with one file, and what came of it.
#pragma once

#include <optional>
#include <string>

#include "services/backup_daemon/copy/side_file.h"

namespace services {

/// One file to copy. Paths on the share are relative to it.
struct CopyJob {
    std::string source;            ///< local path
    std::string target;            ///< on the share
    std::string temporary;         ///< on the share, in the same folder
    long long recorded_size = -1;  ///< size of the copy that is recorded there; -1: none is
    long long offset = 0;          ///< so much of the temporary file is right ...
    std::string prefix_sha256;     ///< ... which has this hash; "" when nobody knows
    bool check = true;             ///< read everything back and compare before it gets its name
    std::optional<SideFile> side_file;
};

/// What came of it.
struct CopyResult {
    long long size = 0;         ///< bytes of the copy: the source's size when it was opened
    long long modified_ns = 0;  ///< the source's modification time then
    std::string sha256;         ///< "" when nothing asked for it
};

}  // namespace services
