// How much of an unfinished file on the share can stay.
#include "services/backup_daemon/copy/resume.h"

#include <algorithm>
#include <utility>

#include "services/backup_daemon/copy/compare.h"

namespace services {

bool begins_with(const std::string& sha256, long long end, CopyState& state) {
    Sha256 hash;
    for (long long at = 0; at < end;) {
        const std::size_t size = state.chunk_at(at, end);
        char* const mine = state.buffers.mine.data();
        state.source.read(at, mine, size);
        hash.add(mine, size);
        at += static_cast<long long>(size);
        state.watcher.alive();
    }
    if (hash.hex() != sha256) return false;
    state.hash.go_on_from(std::move(hash));
    return true;
}

Beginning resume_point(ShareFile& file, long long there, const CopyJob& job, CopyState& state) {
    state.hash.restart();
    const long long end = std::min(there, state.source.size());
    const bool has_checkpoint = job.offset > 0 && !job.prefix_sha256.empty();
    const bool vouched =
        has_checkpoint && job.offset <= end && begins_with(job.prefix_sha256, job.offset, state);
    const long long unread = vouched ? job.offset : 0;
    return {equal_until(file, unread, end, state), unread};
}

}  // namespace services
