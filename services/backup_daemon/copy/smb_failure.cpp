// What the system's error numbers mean when an SMB server, or the way to it, is behind them.
#include "services/backup_daemon/copy/smb_failure.h"

#include <cerrno>
#include <cstring>

namespace services {

FailureKind meaning_of(int error) {
    switch (error) {
        // There is no room for this file, whatever limit says so.
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return FailureKind::full;
        // The server has understood and will not have it, now or later.
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
        case ENOTDIR:
        case ENAMETOOLONG:
            return FailureKind::denied;
        // The way to the server is broken; the last two are what becomes of an open file then.
        case ETIMEDOUT:
        case ECONNREFUSED:
        case ECONNRESET:
        case ECONNABORTED:
        case EPIPE:
        case EHOSTUNREACH:
        case EHOSTDOWN:
        case ENETUNREACH:
        case ENETDOWN:
        case ENETRESET:
        case ENOTCONN:
        case EIO:
        case EBADF:
            return FailureKind::lost;
        // Error numbers have no end, and what a server makes of its own troubles is its own.
        default:
            return FailureKind::other;
    }
}

CopyFailure connection_failure(const SmbLogin& login, int error) {
    const std::string share = "//" + login.server + "/" + login.share + ": ";
    const std::string words = std::strerror(error);
    switch (error) {
        // The root of a share may be looked at, or the share is not ours to use.
        case EACCES:
        case EPERM:
            return {FailureKind::refused, share + "the server refuses user \"" + login.user +
                                              "\" or the password: " + words};
        case ENOENT:
        case ENODEV:
        case ENOTDIR:
            return {FailureKind::refused, share + "there is no such share: " + words};
        // Anything else may pass, like a server that is just starting.
        default:
            return {FailureKind::lost, share + words};
    }
}

}  // namespace services
