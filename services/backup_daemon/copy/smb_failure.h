// What the system's error numbers mean when an SMB server, or the way to it, is behind them.
#pragma once

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/smb_login.h"

namespace services {

/// What it means for a run that a call on a connected share gave this errno.
FailureKind meaning_of(int error);

/// Why a share cannot be used at all: looking at its root gave this errno.
CopyFailure connection_failure(const SmbLogin& login, int error);

}  // namespace services
