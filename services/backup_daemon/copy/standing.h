// What has the target's name on the share before a file is copied.
#pragma once

#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

enum class Standing {
    nothing,  ///< the name is free
    equal,    ///< the whole source, byte for byte: there is nothing to send
    ours,     ///< a copy of an earlier state of the source: it is to be replaced
    foreign,  ///< somebody else's file: it must stay as it is
};

/// Looks at the target. A file that is recorded is ours whatever it holds. One that is not was left
/// by a daemon that was killed between naming and recording, and then it is the beginning of the
/// source; otherwise it is foreign. Content is read only where the sizes allow one or the other.
/// Restarts the hash; where the answer is `equal` it is the whole source's.
/// @throws CopyFailure
Standing what_stands_there(Share& share, const CopyJob& job, CopyState& state);

}  // namespace services
