// What the system's error numbers mean when an SMB server, or the way to it, is behind them.
#pragma once

#include <string>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/smb_login.h"

namespace services {

/// What it means for a run that a call on a connected share gave this errno.
FailureKind meaning_of(int error);

/// What is known of a connection that could not be made.
struct ConnectionError {
    int error = 0;        ///< errno of a look at the share's root
    std::string login{};  ///< what the library says of a login that was refused; "" when none was
    int name = 0;         ///< getaddrinfo(3)'s code for the server's name, if EINVAL came; else 0
};

/// Why a share cannot be used at all.
CopyFailure connection_failure(const SmbLogin& login, const ConnectionError& what);

/// Why a login cannot even be tried: the library has room for 255 bytes of each part, and reads
/// none beyond a zero. "" when it can.
std::string login_problem(const SmbLogin& login);

}  // namespace services
