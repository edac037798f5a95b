// Copies one file to a share: goes on where an earlier attempt stopped, checks, then names it.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

/// What a description beside a copy says of the recording.
struct SideFile {
    int channel = 0;
    std::string guid;
    long long start = 0;  ///< seconds since the epoch
};

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

/// Bytes between two checkpoints.
inline constexpr long long CHECKPOINT_BYTES = 8LL * 1024 * 1024;

/// Copies files one after the other, with one buffer.
class FileCopier {
public:
    /// Bytes that are on their way at one time, and all that a killed copier sends twice.
    static constexpr std::size_t CHUNK = 1024UL * 1024;

    struct Watcher {
        std::function<void(long long)> at;  ///< so many bytes are on the share
        std::function<void(long long, const std::string&)> checkpoint;  ///< offset, hash or ""
        std::function<void()> alive;  ///< something was done that moves no byte to the share
    };

    FileCopier(Share& share, Watcher watcher);

    /// Copies a file up to the size that it has now. What stands at the target already and equals
    /// the source is kept and nothing is sent.
    /// @throws CopyFailure
    CopyResult copy(const CopyJob& job);

private:
    class Attempt;

    /// The folder of the file before is known to be there.
    void make_folder(const std::string& folder);

    Share& share_;
    Watcher watcher_;
    std::vector<char> mine_;
    std::vector<char> theirs_;
    std::string made_folder_;
};

}  // namespace services
