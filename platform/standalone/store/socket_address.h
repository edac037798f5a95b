// The address of a socket that has a path.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <optional>
#include <string>

namespace standalone {

/// @return nothing when the path is too long for one (unix(7))
inline std::optional<sockaddr_un> socket_address(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return {};
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

}  // namespace standalone
