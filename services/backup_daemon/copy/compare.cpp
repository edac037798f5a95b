// How far a file on the share equals the source.
#include "services/backup_daemon/copy/compare.h"

#include <cstring>

namespace services {
namespace {

/// Whether the chunk at `offset` is the same here and there; leaves the source's in `mine`.
bool is_equal(ShareFile& file, long long offset, std::size_t size, CopyState& state) {
    char* const mine = state.buffers.mine.data();
    char* const theirs = state.buffers.theirs.data();
    state.source.read(offset, mine, size);
    return file.read(offset, theirs, size) == size && std::memcmp(mine, theirs, size) == 0;
}

}  // namespace

long long equal_until(ShareFile& file, long long offset, long long end, CopyState& state) {
    while (offset < end) {
        const std::size_t size = state.chunk_at(offset, end);
        if (!is_equal(file, offset, size, state)) return offset;
        state.hash.add(state.buffers.mine.data(), size);
        offset += static_cast<long long>(size);
        state.watcher.alive();
    }
    return offset;
}

bool reads_back(ShareFile& file, CopyState& state) {
    const long long end = state.source.size();
    for (long long offset = 0; offset < end;) {
        const std::size_t size = state.chunk_at(offset, end);
        if (!is_equal(file, offset, size, state)) return false;
        offset += static_cast<long long>(size);
        state.watcher.alive();
    }
    char further = 0;
    return file.read(end, &further, 1) == 0;
}

}  // namespace services
