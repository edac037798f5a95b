// Copies one file to a share: goes on where an earlier attempt stopped, checks, then names it.
#pragma once

#include <memory>
#include <string>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/kept_time.h"
#include "services/backup_daemon/copy/share.h"
#include "services/backup_daemon/copy/standing.h"

namespace services {

/// How often a file is sent at most. The check finds a difference: once is bad luck, twice is a
/// broken share.
inline constexpr int COPY_ATTEMPTS = 2;

/// A copy that is whole on the share and has its name.
struct WholeCopy {
    std::string sha256;               ///< "" when neither a check nor a description asks for it
    long long share_modified_ns = 0;  ///< its time there, as far as the server rounds it
};

/// Copies files one after the other, with one pair of buffers. The share outlives the copier.
class FileCopier {
public:
    FileCopier(Share& share, CopyWatcher watcher, Pace pace = Pace());

    /// Copies a file up to the size that it had when it was opened. Nothing has the target's name
    /// before the copy is whole, checked if the job says so, and of the source's time of last
    /// write; and it takes the name from nothing but a copy of its own. What stands at the target
    /// already and equals the source is kept and nothing is sent. A description is written last.
    /// @throws CopyFailure; what has been sent stays in the temporary file, for the next attempt,
    ///         but not when somebody's file has the name
    WholeCopy copy(const CopyJob& job, const SourceFile& source);

    /// What is known of the line.
    Pace& pace() { return pace_; }

private:
    struct Unfinished {
        std::unique_ptr<ShareFile> file;
        long long size = 0;  ///< that it has already
    };

    WholeCopy send_and_name(const CopyJob& job, const Standing& standing, CopyState& state);
    void make_folder(const std::string& folder);
    void send_until_right(const CopyJob& job, bool from_copy, CopyState& state);
    bool send(const CopyJob& job, bool from_copy, CopyState& state);
    bool begin_from_copy(const CopyJob& job, CopyState& state);
    Unfinished open_temporary(const CopyJob& job);
    Standing take_name(const CopyJob& job, Standing standing, CopyState& state);

    Share& share_;
    CopyWatcher watcher_;
    Pace pace_;
    KeptTime kept_time_;
    ChunkBuffers buffers_;
    std::string made_folder_;  ///< the folder of the file before is known to be there
};

}  // namespace services
