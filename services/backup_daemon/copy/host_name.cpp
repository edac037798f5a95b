// Whether a server's name is known.
#include "services/backup_daemon/copy/host_name.h"

#include <netdb.h>
#include <sys/socket.h>

#include <memory>

namespace services {

int look_up(const std::string& server) {
    addrinfo wanted{};
    wanted.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int error = getaddrinfo(server.c_str(), nullptr, &wanted, &found);
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> freed(found, freeaddrinfo);
    return error;
}

}  // namespace services
