// Reads a copy on the share that was made earlier, to see whether it still is what it was.
#pragma once

#include <functional>

#include "services/backup_daemon/copy/share.h"
#include "services/backup_daemon/copy/source_file.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {

/// Compares size, then content: with the recorded hash or, where there is none, with the source;
/// without either it is not read. Its time does not matter: who has touched it has changed nothing.
/// @param source of the order's size; null when it is not to be compared with it
/// @param alive  called after each piece
/// @throws CopyFailure
Condition read_back(Share& share, const ReadBack& order, const SourceFile* source,
                    const std::function<void()>& alive);

}  // namespace services
