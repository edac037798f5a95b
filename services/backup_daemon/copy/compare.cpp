// How far a file on the share equals the source.
#include "services/backup_daemon/copy/compare.h"

#include <cstring>

namespace services {

long long equal_until(ShareFile& file, long long offset, long long end, CopyState& state) {
    char* const mine = state.buffers.mine.data();
    char* const theirs = state.buffers.theirs.data();
    while (offset < end) {
        const std::size_t size = chunk_at(offset, end);
        state.source.read(offset, mine, size);
        if (file.read(offset, theirs, size) != size) return offset;
        if (std::memcmp(mine, theirs, size) != 0) return offset;
        state.hash.add(mine, size);
        offset += static_cast<long long>(size);
        state.watcher.alive();
    }
    return offset;
}

}  // namespace services
