// How far a file on the share equals the source.
#pragma once

#include <string>

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

/// Whether the remote file has nothing from `offset` to `end` but what a server may have left of
/// the source's bytes there. Reads on for as long as that is so, and tells the watcher of each such
/// chunk that it is alive. Leaves the hash as it is.
/// @param end at most the source's size
/// @throws CopyFailure
bool has_only_remnants(ShareFile& file, long long offset, long long end, CopyState& state);

/// Whether the share gives back the source's chunk at `offset`, which is in `mine`, and nothing
/// behind it if the source ends there: one byte more is asked for then.
/// @throws CopyFailure
bool gives_back(ShareFile& file, long long offset, std::size_t size, CopyState& state);

/// Whether the share gives back the source's first `end` bytes and, if the source ends there,
/// nothing behind them. Leaves the hash as it is, and tells the watcher of each chunk that it is
/// alive.
/// @param end at most the source's size
/// @throws CopyFailure
bool reads_back(ShareFile& file, long long end, CopyState& state);

/// SHA-256 of the first `size` bytes that the remote file has, or of fewer when it has fewer. Tells
/// the watcher of each chunk that it is alive.
/// @throws CopyFailure
std::string hash_of(ShareFile& file, long long size, CopyState& state);

}  // namespace services
