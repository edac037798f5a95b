// Copies one file to a share: goes on where an earlier attempt stopped, checks, then names it.
#pragma once

#include <string>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

/// How often a file is sent at most. The check finds a difference: once is bad luck, twice is a
/// broken share.
inline constexpr int COPY_ATTEMPTS = 2;

/// Copies files one after the other, with one pair of buffers. The share outlives the copier.
class FileCopier {
public:
    FileCopier(Share& share, CopyWatcher watcher);

    /// Copies a file up to the size that it had when it was opened. Nothing has the target's name
    /// before the copy is whole, and checked if the job says so. What stands at the target already
    /// and equals the source is kept and nothing is sent. A description is written last.
    /// @return SHA-256 of the copy; "" when neither a check nor a description asks for it
    /// @throws CopyFailure; what has been sent stays in the temporary file, for the next attempt
    std::string copy(const CopyJob& job, const SourceFile& source);

private:
    void make_folder(const std::string& folder);
    void send_until_right(const CopyJob& job, CopyState& state);
    void send(const CopyJob& job, CopyState& state);
    bool is_right(const CopyJob& job, CopyState& state);

    Share& share_;
    CopyWatcher watcher_;
    ChunkBuffers buffers_;
    std::string made_folder_;  ///< the folder of the file before is known to be there
};

}  // namespace services
