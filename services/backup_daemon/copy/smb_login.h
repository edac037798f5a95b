// Whom to ask for what on an SMB server, and how that is spelt for the library.
#pragma once

#include <optional>
#include <string>

namespace services {

/// Whom to ask for what.
struct SmbLogin {
    std::string server;  ///< name or address, of either version
    int port = 0;
    std::string share;
    std::string user;  ///< "user" or "domain\user"
    std::string password;
};

/// The two parts of a login's user.
struct SmbUser {
    std::optional<std::string> domain;  ///< nothing when none is named
    std::string name;
};

/// Splits "domain\user". Several backslashes count as one: a client that escapes twice sends two.
SmbUser smb_user(const std::string& user);

/// The address of a file or folder, percent-encoded; of the share itself when `path` is "".
std::string smb_url(const SmbLogin& login, const std::string& path);

}  // namespace services
