// How far a file on the share equals the source.
#pragma once

#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/share.h"

namespace services {

/// Reads on from `offset` for as long as the remote file equals the source, up to `end` at most.
/// Adds what is equal to the hash, and tells the watcher of each equal chunk that it is alive.
/// @param end at most the source's size
/// @return where the first chunk begins that differs, or that the remote file has not whole; `end`
///         when there is none
/// @throws CopyFailure
long long equal_until(ShareFile& file, long long offset, long long end, CopyState& state);

/// Whether the share gives back the whole source and nothing behind it. Asks for what the source
/// has and one byte more: a file on a strange server need not have an end. Leaves the hash as it
/// is, and tells the watcher of each chunk that it is alive.
/// @throws CopyFailure
bool reads_back(ShareFile& file, CopyState& state);

}  // namespace services
