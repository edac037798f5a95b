// What every step of a file's copy works with: the source, buffers, the hash, and who watches.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "services/backup_daemon/copy/content_hash.h"
#include "services/backup_daemon/copy/pace.h"
#include "services/backup_daemon/copy/source_file.h"

namespace services {

/// Who wants to know how a copy goes on.
struct CopyWatcher {
    std::function<void(long long)> begins;  ///< so many bytes stay on the share; now others follow
    std::function<void(long long)> at;      ///< so many bytes are on the share
    std::function<void(long long, const std::string&)> checkpoint;  ///< offset, hash or ""
    std::function<void()> alive;  ///< something was done that moves no byte to the share
};

/// Room for a chunk of the source and for one of what the share has. It grows as chunks ask for it:
/// many lanes have small files alone.
struct ChunkBuffers {
    std::vector<char> mine{};
    std::vector<char> theirs{};

    void hold(std::size_t chunk) {
        mine.resize(std::max(mine.size(), chunk));
        theirs.resize(std::max(theirs.size(), chunk));
    }
};

/// One file's copy. All but the hash outlives it.
struct CopyState {
    const SourceFile& source;
    ChunkBuffers& buffers;
    const CopyWatcher& watcher;
    Pace& pace;
    ContentHash hash;  ///< of the source, up to where the step before has come

    /// Bytes of the chunk that begins at `offset` of something that ends at `end`. The buffers have
    /// room for it.
    std::size_t chunk_at(long long offset, long long end) {
        const auto left = static_cast<std::size_t>(end - offset);
        const std::size_t chunk = std::min(pace.chunk(), left);
        buffers.hold(chunk);
        return chunk;
    }
};

}  // namespace services
