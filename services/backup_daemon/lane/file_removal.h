// Removes files from a share that still are what they were, and leaves all others where they lie.
#pragma once

#include <functional>
#include <vector>

#include "services/backup_daemon/copy/share.h"
#include "services/backup_daemon/lane/worker_messages.h"

namespace services {

/// Carries an order out. Each folder is listed once, before anything in it goes. A file goes when
/// it has the size and, within two seconds (servers keep times more or less finely), the time that
/// the order tells; its description when that ends as the order says. What is not there is missing.
/// @param alive called between two files
/// @return what became of each, in the order of the order's files
/// @throws CopyFailure; some of the files may be gone then
std::vector<Fate> remove_files(Share& share, const RemoveFiles& order,
                               const std::function<void()>& alive);

}  // namespace services
