// Tells which channels' folders cannot be read, without anybody waiting for those that hang.
#pragma once

#include <sys/types.h>

#include <vector>

#include "platform/standalone/store/channel_store.h"

namespace services {

/// A process of its own that says so on standard error and ends. A folder of a network drive whose
/// server is gone may never answer. It has none of the daemon's descriptors but the standard ones,
/// and is killed when the daemon ends.
class UnreadableFolders {
public:
    /// @throws std::runtime_error when there is no process to be had
    explicit UnreadableFolders(const std::vector<standalone::Channel>& channels);

    /// Takes note of its end. Now and then; it never waits.
    void reap();

private:
    pid_t process_;  ///< 0: it has ended
};

}  // namespace services
