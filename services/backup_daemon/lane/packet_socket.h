// Packets over a pair of sockets between two processes: each arrives whole or not at all.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/standalone/store/file_handle.h"

namespace services {

/// Most bytes of one packet: paths of a hundred files with their descriptions, at their longest.
inline constexpr std::size_t LARGEST_PACKET = 256UL * 1024;

/// Two ends of one connection.
/// @throws std::system_error
std::pair<standalone::FileHandle, standalone::FileHandle> connected_sockets();

/// Sends a packet; waits for room when the other end does not keep up.
/// @return false: the other end is gone, or the packet is larger than LARGEST_PACKET
bool send_packet(int socket, const std::string& packet);

/// Sends a packet without waiting.
/// @param file an open file of which the other end gets a descriptor of its own; -1: none
/// @return false also when there is no room for it
bool send_packet_at_once(int socket, const std::string& packet, int file = -1);

/// Takes the next packet; waits for one. Nothing when the other end is gone.
std::optional<std::string> wait_for_packet(int socket);

/// A packet with the file that came along, if one did.
struct Delivery {
    std::string packet;
    standalone::FileHandle file;
};

/// Takes the next packet as wait_for_packet() does, which leaves files behind.
std::optional<Delivery> wait_for_delivery(int socket);

/// What was found without waiting. Files that come along are left behind.
struct Received {
    std::optional<std::string> packet;
    bool ended = false;  ///< there is none, and none will come any more that can be understood
};

Received look_for_packet(int socket);

}  // namespace services
