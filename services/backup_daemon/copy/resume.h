// How much of an unfinished file on the share can stay.
#pragma once

#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

/// Whether the source's first `end` bytes have this hash. Then the state's hash is theirs.
/// @param end at most the source's size
/// @throws CopyFailure
bool begins_with(const std::string& sha256, long long end, CopyState& state);

/// A beginning of an unfinished file that can stay.
struct Beginning {
    long long size = 0;    ///< bytes: where to go on writing
    long long unread = 0;  ///< of them, how many nobody has compared with the share's
};

/// Compares an unfinished file with the source. What the job's checkpoint vouches for is not read
/// from the share, as long as the source still has the hash that was noted then; without such a
/// checkpoint everything is compared. Leaves the hash of what can stay.
/// @param there bytes that the unfinished file has
/// @return at most the whole source
/// @throws CopyFailure
Beginning resume_point(ShareFile& file, long long there, const CopyJob& job, CopyState& state);

}  // namespace services
