// What the daemon and its copying processes say to each other.
#include "services/backup_daemon/lane/worker_messages.h"

#include <concepts>
#include <stdexcept>
#include <type_traits>

#include "services/backup_daemon/lane/packet.h"

namespace services {
namespace {

/// A message, constant when it is written.
template <typename Given, typename Message>
concept Of = std::same_as<std::remove_const_t<Given>, Message>;

// The members of each message, once for writing and reading.

void carry_texts(auto& packet, Of<std::vector<std::string>> auto& texts) {
    packet.carry_size(texts);
    for (auto& text : texts) packet.carry(text);
}

void carry(auto& packet, Of<ListDays> auto& order) {
    packet.carry(order.recordings);
    packet.carry(order.first);
    packet.carry(order.last);
}

void carry(auto& packet, Of<ListDay> auto& order) {
    packet.carry(order.recordings);
    packet.carry(order.day);
    packet.carry(order.normal);
    packet.carry(order.alarm);
    packet.carry(order.remote);
    packet.carry(order.ask_share);
}

void carry(auto& packet, Of<CopyJob> auto& job) {
    packet.carry(job.source);
    packet.carry(job.target);
    packet.carry(job.temporary);
    packet.carry(job.recorded_size);
    packet.carry(job.offset);
    packet.carry(job.prefix_sha256);
    packet.carry(job.check);
    packet.carry_presence(job.side_file);
    if (!job.side_file) return;
    packet.carry(job.side_file->channel);
    packet.carry(job.side_file->guid);
    packet.carry(job.side_file->start);
}

void carry(auto& packet, Of<RemoveFiles> auto& order) {
    carry_texts(packet, order.files);
    carry_texts(packet, order.folders);
}

void carry(auto&, Of<Ready> auto&) {}

void carry(auto& packet, Of<Days> auto& report) {
    carry_texts(packet, report.names);
}

void carry(auto& packet, Of<Entries> auto& report) {
    packet.carry_size(report.entries);
    for (auto& entry : report.entries) {
        packet.carry(entry.name);
        packet.carry(entry.alarm);
        packet.carry(entry.size);
        packet.carry(entry.modified_ns);
        packet.carry(entry.remote_size);
    }
}

void carry(auto& packet, Of<At> auto& report) {
    packet.carry(report.offset);
}

void carry(auto& packet, Of<Noted> auto& report) {
    packet.carry(report.offset);
    packet.carry(report.sha256);
}

void carry(auto& packet, Of<Copied> auto& report) {
    packet.carry(report.result.size);
    packet.carry(report.result.modified_ns);
    packet.carry(report.result.sha256);
}

void carry(auto&, Of<Done> auto&) {}

void carry(auto& packet, Of<Failed> auto& report) {
    packet.carry_choice(report.kind, LAST_FAILURE_KIND);
    packet.carry(report.text);
}

template <typename Message>
std::string pack_message(const Message& message) {
    PacketWriter packet;
    packet.carry(static_cast<long long>(message.index()));
    std::visit([&](const auto& which) { carry(packet, which); }, message);
    return packet.bytes();
}

/// Reads the alternative that the packet's number names.
template <typename Message, std::size_t Index = 0>
Message unpack_alternative(PacketReader& packet, long long wanted) {
    if constexpr (Index < std::variant_size_v<Message>) {
        if (wanted != Index) return unpack_alternative<Message, Index + 1>(packet, wanted);
        std::variant_alternative_t<Index, Message> message;
        carry(packet, message);
        return message;
    }
    throw std::runtime_error("a packet is of no known kind");
}

template <typename Message>
Message unpack_message(const std::string& bytes) {
    PacketReader packet(bytes);
    long long wanted = 0;
    packet.carry(wanted);
    Message message = unpack_alternative<Message>(packet, wanted);
    packet.end();
    return message;
}

}  // namespace

std::string pack(const Order& order) {
    return pack_message(order);
}

Order unpack_order(const std::string& packet) {
    return unpack_message<Order>(packet);
}

std::string pack(const Report& report) {
    return pack_message(report);
}

Report unpack_report(const std::string& packet) {
    return unpack_message<Report>(packet);
}

}  // namespace services
