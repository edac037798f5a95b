// Packets over a pair of sockets between two processes: each arrives whole or not at all.
#include "services/backup_daemon/lane/packet_socket.h"

#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace services {
namespace {

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// The kernel's usual limit of one packet is a little above 200 KiB.
void make_room(int socket) {
    constexpr int ROOM = LARGEST_PACKET;
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &ROOM, sizeof ROOM) != 0) fail("setsockopt");
}

bool send_with(int socket, const std::string& packet, int flags) {
    if (packet.size() > LARGEST_PACKET) return false;
    return send(socket, packet.data(), packet.size(), flags | MSG_NOSIGNAL) >= 0;
}

Received receive_with(int socket, int flags) {
    std::string packet(LARGEST_PACKET, '\0');
    const ssize_t size = recv(socket, packet.data(), packet.size(), flags);
    if (size <= 0) return {.packet = {}, .ended = size == 0 || (errno != EAGAIN && errno != EINTR)};
    packet.resize(static_cast<std::size_t>(size));
    return {.packet = std::move(packet), .ended = false};
}

}  // namespace

std::pair<standalone::FileHandle, standalone::FileHandle> connected_sockets() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) fail("socketpair");
    std::pair sockets{standalone::FileHandle(ends[0]), standalone::FileHandle(ends[1])};
    make_room(sockets.first.get());
    make_room(sockets.second.get());
    return sockets;
}

bool send_packet(int socket, const std::string& packet) {
    return send_with(socket, packet, 0);
}

bool send_packet_at_once(int socket, const std::string& packet) {
    return send_with(socket, packet, MSG_DONTWAIT);
}

std::optional<std::string> wait_for_packet(int socket) {
    for (;;) {
        Received received = receive_with(socket, 0);
        if (received.packet || received.ended) return std::move(received.packet);
    }
}

Received look_for_packet(int socket) {
    return receive_with(socket, MSG_DONTWAIT);
}

}  // namespace services
