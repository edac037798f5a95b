// Packets over a pair of sockets between two processes: each arrives whole or not at all.
#include "services/backup_daemon/lane/packet_socket.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>

#include "services/backup_daemon/lane/errno_failure.h"

namespace services {
namespace {

/// The kernel's usual limit of one packet is a little above 200 KiB.
void make_room(int socket) {
    constexpr int ROOM = LARGEST_PACKET;
    if (setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &ROOM, sizeof ROOM) != 0)
        fail_with_errno("setsockopt");
}

/// Room for the descriptor of one file.
struct FileRoom {
    alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(int))]{};
};

msghdr message_of(iovec& bytes) {
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    return message;
}

void attach(msghdr& message, FileRoom& room, int file) {
    message.msg_control = room.bytes;
    message.msg_controllen = sizeof room.bytes;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof file);
    std::memcpy(CMSG_DATA(header), &file, sizeof file);
}

standalone::FileHandle file_of(msghdr& message) {
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS)
        return standalone::FileHandle();
    int file = -1;
    std::memcpy(&file, CMSG_DATA(header), sizeof file);
    return standalone::FileHandle(file);
}

bool send_with(int socket, const std::string& packet, int flags, int file = -1) {
    if (packet.size() > LARGEST_PACKET) return false;
    // The system takes what it sends as if it might change it.
    iovec bytes{const_cast<char*>(packet.data()), packet.size()};
    msghdr message = message_of(bytes);
    FileRoom room;
    if (file >= 0) attach(message, room, file);
    return sendmsg(socket, &message, flags | MSG_NOSIGNAL) >= 0;
}

/// @param file receives a file that comes along; without one, there is no room for any
Received receive_with(int socket, int flags, standalone::FileHandle* file = nullptr) {
    std::string packet(LARGEST_PACKET, '\0');
    iovec bytes{packet.data(), packet.size()};
    msghdr message = message_of(bytes);
    FileRoom room;
    if (file) {
        message.msg_control = room.bytes;
        message.msg_controllen = sizeof room.bytes;
    }
    const ssize_t size = recvmsg(socket, &message, flags | MSG_CMSG_CLOEXEC);
    if (size <= 0) return {.packet = {}, .ended = size == 0 || (errno != EAGAIN && errno != EINTR)};
    if (file) *file = file_of(message);
    // Nobody sends a larger one, and the beginning of it might mean something else.
    if (message.msg_flags & MSG_TRUNC) return {.packet = {}, .ended = true};
    packet.resize(static_cast<std::size_t>(size));
    return {.packet = std::move(packet), .ended = false};
}

}  // namespace

std::pair<standalone::FileHandle, standalone::FileHandle> connected_sockets() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0)
        fail_with_errno("socketpair");
    std::pair sockets{standalone::FileHandle(ends[0]), standalone::FileHandle(ends[1])};
    make_room(sockets.first.get());
    make_room(sockets.second.get());
    return sockets;
}

bool send_packet(int socket, const std::string& packet) {
    return send_with(socket, packet, 0);
}

bool send_packet_at_once(int socket, const std::string& packet, int file) {
    return send_with(socket, packet, MSG_DONTWAIT, file);
}

std::optional<std::string> wait_for_packet(int socket) {
    for (;;) {
        Received received = receive_with(socket, 0);
        if (received.packet || received.ended) return std::move(received.packet);
    }
}

std::optional<Delivery> wait_for_delivery(int socket) {
    for (;;) {
        standalone::FileHandle file;
        Received received = receive_with(socket, 0, &file);
        if (received.packet) return Delivery{std::move(*received.packet), std::move(file)};
        if (received.ended) return {};
    }
}

Received look_for_packet(int socket) {
    return receive_with(socket, MSG_DONTWAIT);
}

}  // namespace services
