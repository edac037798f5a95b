// What has the target's name on the share before a file is copied.
#pragma once

#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

struct Standing {
    enum class Kind {
        nothing,    ///< the name is free
        equal,      ///< the whole source, byte for byte: there is nothing to send
        recorded,   ///< the copy that is recorded, as it was recorded: it may be replaced
        beginning,  ///< nothing that the source has not: it may be replaced
        remnant,    ///< the same, or a claim, but for zeros in the place of other bytes
        claim,      ///< the name was claimed by this recorder, which was stopped then
        foreign,    ///< somebody else's file: it must stay as it is
    };

    Kind kind = Kind::nothing;
    FileState seen{};  ///< what was looked at; meaningless for `nothing`
};

/// Looks at the target. A copy that is recorded is ours for as long as it has the size, and the
/// time where one is known, that were recorded. The beginning of the source is what a cut left of a
/// copy, or a server that lost its power, which may leave zeros in the place of bytes, too; nothing
/// is lost with either. Anything else is foreign: somebody has changed it, or put it there.
/// Content is read only where the sizes leave the question open, and as far as it stays open.
/// Restarts the hash; where the answer is `equal` it is the whole source's.
/// @throws CopyFailure
Standing what_stands_there(Share& share, const CopyJob& job, CopyState& state);

}  // namespace services
