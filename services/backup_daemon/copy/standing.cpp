// What has the target's name on the share before a file is copied.
#include "services/backup_daemon/copy/standing.h"

#include "services/backup_daemon/copy/compare.h"

namespace services {

Standing what_stands_there(Share& share, const CopyJob& job, CopyState& state) {
    const auto there = share.look(job.target);
    if (!there) return Standing::nothing;
    const bool recorded = job.recorded_size >= 0;
    const bool as_long = there->size == state.source.size();
    const bool may_be_beginning = there->size < state.source.size() && !recorded;
    state.hash.restart();
    if (as_long || may_be_beginning) {
        const auto file = share.open(job.target, Share::Open::read);
        if (equal_until(*file, 0, there->size, state) == there->size)
            return as_long ? Standing::equal : Standing::ours;
    }
    return recorded ? Standing::ours : Standing::foreign;
}

}  // namespace services
