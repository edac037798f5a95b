// Finds out whose process is at the other end of a TCP connection within this machine.
#pragma once

#include <netinet/in.h>
#include <sys/types.h>

#include <optional>

#include "platform/standalone/store/file_handle.h"

namespace services {

/// Both ends of a TCP connection over IPv4, as one of its two sockets sees them.
struct TcpEnds {
    sockaddr_in own{};
    sockaddr_in other{};
};

/// The kernel's answers about single sockets (sock_diag(7)), at the same price however many sockets
/// there are.
class SockDiag {
public:
    SockDiag();

    /// Whether this kernel answers at all: it can be built without, and a service be kept from
    /// asking.
    bool answers() const { return answers_; }

    /// The user who made the socket with these ends. None when there is no such socket, or nobody
    /// holds it any more: what a process has closed seems to be root's.
    std::optional<uid_t> user(const TcpEnds& socket) const;

private:
    standalone::FileHandle kernel_;
    bool answers_ = false;
};

/// The same, read off the list of all sockets: for machines where SockDiag gets no answer.
std::optional<uid_t> user_in_socket_list(const TcpEnds& socket);

/// Looks up the users at the other ends of connections.
class Peers {
public:
    /// The user whose process made the other end of a connection and still holds it. None when that
    /// cannot be said for certain: the other end is closed, or not of this machine.
    /// @param connection descriptor of a TCP socket over IPv4
    std::optional<uid_t> user(int connection) const;

private:
    std::optional<uid_t> look(const TcpEnds& socket) const;
    SockDiag diag_;
};

}  // namespace services
