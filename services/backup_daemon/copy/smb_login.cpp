// Whom to ask for what on an SMB server, and how that is spelt for the library.
#include "services/backup_daemon/copy/smb_login.h"

#include <algorithm>
#include <string_view>

namespace services {
namespace {

constexpr char HEX_DIGITS[] = "0123456789ABCDEF";

bool may_stand_in_url(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("-_.~/").find(c) != std::string_view::npos;
}

std::string percent_encoded(const std::string& text) {
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (may_stand_in_url(c))
            encoded += c;
        else
            encoded.append({'%', HEX_DIGITS[byte >> 4], HEX_DIGITS[byte & 15]});
    }
    return encoded;
}

}  // namespace

SmbUser smb_user(const std::string& user) {
    const auto backslash = user.find('\\');
    if (backslash == std::string::npos) return {{}, user};
    const auto name = std::min(user.find_first_not_of('\\', backslash), user.size());
    return {user.substr(0, backslash), user.substr(name)};
}

std::string smb_url(const SmbLogin& login, const std::string& path) {
    const bool v6 = login.server.find(':') != std::string::npos;
    const std::string host = v6 ? "[" + login.server + "]" : percent_encoded(login.server);
    std::string url =
        "smb://" + host + ":" + std::to_string(login.port) + "/" + percent_encoded(login.share);
    if (!path.empty()) url += "/" + percent_encoded(path);
    return url;
}

}  // namespace services
