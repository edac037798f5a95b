// Appends lines to a debug file that several processes share and that never grows without bound.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/standalone/store/file_handle.h"

namespace standalone {

/// Largest size of the file before it is put aside as "<path>.1".
inline constexpr long long DEBUG_FILE_LIMIT = 4 * 1024 * 1024;

/// One debug file, opened when first needed. The rules of log_File_Debug (platform/recorder_log.h)
/// hold.
class DebugFile {
public:
    explicit DebugFile(std::string path) : path_(std::move(path)) {}

    const std::string& path() const { return path_; }

    /// Appends `line`, whole or not at all, in one write.
    void append(std::string_view line);

private:
    bool is_current(long long& size) const;
    bool open();
    void put_aside() const;

    std::string path_;
    FileHandle file_;
    dev_t device_ = 0;  ///< with inode_: which file is open
    ino_t inode_ = 0;
};

}  // namespace standalone
