// What a copying process does: connect, then one order after the other.
#pragma once

#include <functional>
#include <memory>

#include "services/backup_daemon/copy/share.h"

namespace services {

/// Makes the share, not connected yet, in the process that is going to use it.
using ShareMaker = std::function<std::unique_ptr<Share>()>;

/// Connects and reports Ready, then serves orders from a socket until its other end is gone or the
/// connection to the share is of no more use. What goes wrong is reported as Failed; an order that
/// cannot be read ends the work, too.
void run_worker(int socket, const ShareMaker& make_share);

}  // namespace services
