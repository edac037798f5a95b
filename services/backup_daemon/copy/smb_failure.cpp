// What the system's error numbers mean when an SMB server, or the way to it, is behind them.
#include "services/backup_daemon/copy/smb_failure.h"

#include <netdb.h>

#include <cerrno>
#include <cstring>

namespace services {
namespace {

constexpr std::size_t LONGEST_PART = 255;

// A server that asks others who may log in, and does not reach them just now.
constexpr char NOBODY_TO_ASK[] = "no logon servers";

bool says(const std::string& login_words, const char* what) {
    return login_words.find(what) != std::string::npos;
}

/// Of a name; other troubles are the name service's and may pass.
bool is_unknown(int code) {
    return code == EAI_NONAME || code == EAI_NODATA || code == EAI_ADDRFAMILY;
}

/// The library has words of the same form for a connection that was lost before the answer: that
/// nobody was refused only its error number tells.
CopyFailure login_failure(const ConnectionError& what, const std::string& share,
                          const std::string& user) {
    if (what.error == ETIMEDOUT)
        return {FailureKind::lost, share + "the server does not answer the login"};
    if (meaning_of(what.error) == FailureKind::lost)
        return {FailureKind::lost, share + "lost during the login: " + std::strerror(what.error)};
    return {says(what.login, NOBODY_TO_ASK) ? FailureKind::lost : FailureKind::refused,
            share + "the server refuses " + user + " or the password: " + what.login};
}

}  // namespace

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

CopyFailure connection_failure(const SmbLogin& login, const ConnectionError& what) {
    const std::string share = "//" + login.server + "/" + login.share + ": ";
    const std::string user = "user \"" + login.user + "\"";
    const std::string words = std::strerror(what.error);
    if (!what.login.empty()) return login_failure(what, share, user);
    if (what.name != 0) {
        const char* why = gai_strerror(what.name);
        if (is_unknown(what.name))
            return {FailureKind::unknown, share + "there is no such server: " + why};
        return {FailureKind::lost, share + "the server's name cannot be looked up: " + why};
    }
    switch (what.error) {
        // The login was taken; the root of a share may be looked at, or the share is not ours.
        case EACCES:
        case EPERM:
            return {FailureKind::refused,
                    share + "the server does not give this share to " + user + ": " + words};
        case ENOENT:
        case ENODEV:
        case ENOTDIR:
            return {FailureKind::refused, share + "there is no such share: " + words};
        // So ends a server that knows SMB 1 alone, but also one that is being stopped.
        case ECONNABORTED:
            return {FailureKind::lost,
                    share + words + "; it is tried again, though a server must know SMB 2 or 3"};
        // Anything else may pass, like a server that is just starting.
        default:
            return {FailureKind::lost, share + words};
    }
}

std::string login_problem(const SmbLogin& login) {
    const SmbUser user = smb_user(login.user);
    for (const std::string& part : {user.domain.value_or(""), user.name, login.password}) {
        if (part.size() > LONGEST_PART) return "a user, domain or password of more than 255 bytes";
        if (part.find('\0') != std::string::npos) return "a user or password with a zero in it";
    }
    return "";
}

}  // namespace services
