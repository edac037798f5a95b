// Sends a file's bytes to the share.
#include "services/backup_daemon/copy/transfer.h"

#include "services/backup_daemon/copy/compare.h"

namespace services {
namespace {

/// Timed as one: neither way may take so long that the server seems to be lost.
bool send_chunk(ShareFile& file, long long offset, std::size_t size, bool check, CopyState& state) {
    bool is_right = true;
    state.pace.send(size, [&] {
        file.write(offset, state.buffers.mine.data(), size);
        if (check) is_right = gives_back(file, offset, size, state);
    });
    return is_right;
}

}  // namespace

bool write_from(ShareFile& file, long long offset, bool check, CopyState& state) {
    long long noted = offset;
    while (offset < state.source.size()) {
        const std::size_t size = state.chunk_at(offset, state.source.size());
        char* const mine = state.buffers.mine.data();
        state.source.read(offset, mine, size);
        if (!send_chunk(file, offset, size, check, state)) return false;
        state.hash.add(mine, size);
        offset += static_cast<long long>(size);
        state.watcher.at(offset);
        if (offset - noted < CHECKPOINT_BYTES) continue;
        state.watcher.checkpoint(offset, state.hash.hex());
        noted = offset;
    }
    return true;
}

}  // namespace services
