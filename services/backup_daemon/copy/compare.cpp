// How far a file on the share equals the source.
#include "services/backup_daemon/copy/compare.h"

#include <cstring>

#include "services/backup_daemon/copy/remnant.h"
#include "services/backup_daemon/copy/sha256.h"

namespace services {
namespace {

/// Reads the chunk at `offset` here and there.
/// @return false: the remote file has not the whole of it
bool read_both(ShareFile& file, long long offset, std::size_t size, CopyState& state) {
    state.source.read(offset, state.buffers.mine.data(), size);
    return file.read(offset, state.buffers.theirs.data(), size) == size;
}

/// Whether the chunk at `offset` is the same here and there; leaves the source's in `mine`.
bool is_equal(ShareFile& file, long long offset, std::size_t size, CopyState& state) {
    return read_both(file, offset, size, state) &&
           std::memcmp(state.buffers.mine.data(), state.buffers.theirs.data(), size) == 0;
}

/// Asks for a single byte: a file on a strange server need not have an end. (Asked for it together
/// with those before, the library sends the same two requests.)
bool ends_at(ShareFile& file, long long end) {
    char further = 0;
    return file.read(end, &further, 1) == 0;
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

bool has_only_remnants(ShareFile& file, long long offset, long long end, CopyState& state) {
    while (offset < end) {
        const std::size_t size = state.chunk_at(offset, end);
        if (!read_both(file, offset, size, state)) return false;
        if (!is_remnant({state.buffers.theirs.data(), size}, {state.buffers.mine.data(), size}))
            return false;
        offset += static_cast<long long>(size);
        state.watcher.alive();
    }
    return true;
}

bool gives_back(ShareFile& file, long long offset, std::size_t size, CopyState& state) {
    char* const theirs = state.buffers.theirs.data();
    if (file.read(offset, theirs, size) != size) return false;
    if (std::memcmp(state.buffers.mine.data(), theirs, size) != 0) return false;
    const long long end = offset + static_cast<long long>(size);
    return end < state.source.size() || ends_at(file, end);
}

bool reads_back(ShareFile& file, long long end, CopyState& state) {
    for (long long offset = 0; offset < end;) {
        const std::size_t size = state.chunk_at(offset, end);
        state.source.read(offset, state.buffers.mine.data(), size);
        if (!gives_back(file, offset, size, state)) return false;
        offset += static_cast<long long>(size);
        state.watcher.alive();
    }
    return state.source.size() > 0 || ends_at(file, 0);
}

std::string hash_of(ShareFile& file, long long size, CopyState& state) {
    Sha256 hash;
    for (long long offset = 0; offset < size;) {
        const std::size_t wanted = state.chunk_at(offset, size);
        char* const theirs = state.buffers.theirs.data();
        const std::size_t got = file.read(offset, theirs, wanted);
        hash.add(theirs, got);
        if (got < wanted) break;
        offset += static_cast<long long>(got);
        state.watcher.alive();
    }
    return hash.hex();
}

}  // namespace services
