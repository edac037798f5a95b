// What a copying process does: connect, then one order after the other.
#pragma once

#include "services/backup_daemon/copy/smb_share.h"

namespace services {

/// Serves orders from a socket until it is closed or the connection to the share is lost.
void run_worker(int socket, const SmbLogin& login);

}  // namespace services
