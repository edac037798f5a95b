// Sends a file's bytes to the share.
#pragma once

#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

/// Bytes between two checkpoints.
inline constexpr long long CHECKPOINT_BYTES = 8LL * 1024 * 1024;

/// Writes the source from `offset` to its end, in chunks. Tells the watcher after each where it is,
/// and gives it a checkpoint whenever CHECKPOINT_BYTES have been written since the one before.
/// @param check each chunk is read back at once, and compared with what was sent
/// @param state its hash is that of the source up to `offset`; afterwards, of the whole source
/// @return false: the share has given back something else, and nothing was done after that
/// @throws CopyFailure
bool write_from(ShareFile& file, long long offset, bool check, CopyState& state);

}  // namespace services
