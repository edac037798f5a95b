// How much of an unfinished file on the share can stay.
#include "services/backup_daemon/copy/resume.h"

#include <algorithm>
#include <utility>

#include "services/backup_daemon/copy/compare.h"

namespace services {
namespace {

/// The hash of the source's first `end` bytes.
Sha256 hash_of_beginning(long long end, const CopyState& state) {
    char* const mine = state.buffers.mine.data();
    Sha256 hash;
    for (long long at = 0; at < end;) {
        const std::size_t size = chunk_at(at, end);
        state.source.read(at, mine, size);
        hash.add(mine, size);
        at += static_cast<long long>(size);
        state.watcher.alive();
    }
    return hash;
}

}  // namespace

long long resume_point(ShareFile& file, long long there, const CopyJob& job, CopyState& state) {
    state.hash.restart();
    const long long end = std::min(there, state.source.size());
    const bool has_checkpoint = job.offset > 0 && !job.prefix_sha256.empty();
    if (!has_checkpoint || job.offset > end) return equal_until(file, 0, end, state);
    Sha256 beginning = hash_of_beginning(job.offset, state);
    if (beginning.hex() != job.prefix_sha256) return equal_until(file, 0, end, state);
    state.hash.go_on_from(std::move(beginning));
    return equal_until(file, job.offset, end, state);
}

}  // namespace services
