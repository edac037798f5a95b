// Sends a file's bytes to the share.
#include "services/backup_daemon/copy/transfer.h"

namespace services {

void write_from(ShareFile& file, long long offset, CopyState& state) {
    long long noted = offset;
    while (offset < state.source.size()) {
        const std::size_t size = state.chunk_at(offset, state.source.size());
        char* const mine = state.buffers.mine.data();
        state.source.read(offset, mine, size);
        state.pace.send(size, [&] { file.write(offset, mine, size); });
        state.hash.add(mine, size);
        offset += static_cast<long long>(size);
        state.watcher.at(offset);
        if (offset - noted < CHECKPOINT_BYTES) continue;
        state.watcher.checkpoint(offset, state.hash.hex());
        noted = offset;
    }
}

}  // namespace services
