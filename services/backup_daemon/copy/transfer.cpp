// Sends a file's bytes to the share, and reads back what arrived.
#include "services/backup_daemon/copy/transfer.h"

namespace services {

void write_from(ShareFile& file, long long offset, CopyState& state) {
    char* const mine = state.buffers.mine.data();
    long long noted = offset;
    while (offset < state.source.size()) {
        const std::size_t size = chunk_at(offset, state.source.size());
        state.source.read(offset, mine, size);
        file.write(offset, mine, size);
        state.hash.add(mine, size);
        offset += static_cast<long long>(size);
        state.watcher.at(offset);
        if (offset - noted < CHECKPOINT_BYTES) continue;
        state.watcher.checkpoint(offset, state.hash.hex());
        noted = offset;
    }
}

bool reads_back(ShareFile& file, CopyState& state) {
    char* const theirs = state.buffers.theirs.data();
    Sha256 arrived;
    long long size = 0;
    for (std::size_t got = CHUNK; got == CHUNK && size <= state.source.size();) {
        got = file.read(size, theirs, CHUNK);
        arrived.add(theirs, got);
        size += static_cast<long long>(got);
        state.watcher.alive();
    }
    return size == state.source.size() && arrived.hex() == state.hash.hex();
}

}  // namespace services
