// What the daemon and its copying processes say to each other.
#include "services/backup_daemon/lane/worker_messages.h"

#include <concepts>
#include <stdexcept>
#include <type_traits>

#include "services/backup_daemon/lane/packet.h"

namespace services {
namespace {

// Two lengths of texts, a size, and whether a time follows.
constexpr std::size_t LEAST_OF_A_DOOMED_FILE = 4 * sizeof(long long);

/// A message, constant when it is written.
template <typename Given, typename Message>
concept Of = std::same_as<std::remove_const_t<Given>, Message>;

// The members of each message, once for writing and reading.

void carry_texts(auto& packet, Of<std::vector<std::string>> auto& texts) {
    packet.carry_size(texts);
    for (auto& text : texts) packet.carry(text);
}

void carry(auto& packet, Of<AskFiles> auto& order) {
    packet.carry(order.folder);
    carry_texts(packet, order.names);
}

void carry(auto& packet, Of<RecordedCopy> auto& copy) {
    packet.carry(copy.size);
    packet.carry_presence(copy.modified_ns);
    if (copy.modified_ns) packet.carry(*copy.modified_ns);
    packet.carry(copy.sha256);
    packet.carry(copy.doubted);
    packet.carry(copy.source_modified_ns);
}

void carry(auto& packet, Of<CopyJob> auto& job) {
    packet.carry(job.recordings);
    packet.carry(job.source);
    packet.carry(job.target);
    packet.carry(job.temporary);
    packet.carry(job.claim);
    packet.carry(job.fresh);
    packet.carry_presence(job.recorded);
    if (job.recorded) carry(packet, *job.recorded);
    packet.carry(job.offset);
    packet.carry(job.prefix_sha256);
    packet.carry(job.check);
    packet.carry_presence(job.side_file);
    if (!job.side_file) return;
    packet.carry(job.side_file->channel);
    packet.carry(job.side_file->guid);
    packet.carry(job.side_file->start);
}

void carry(auto& packet, Of<SendFile> auto& order) {
    carry(packet, order.job);
    packet.carry(order.size);
    packet.carry(order.modified_ns);
}

void carry(auto& packet, Of<DoomedFile> auto& file) {
    packet.carry(file.path);
    packet.carry(file.size);
    packet.carry_presence(file.modified_ns);
    if (file.modified_ns) packet.carry(*file.modified_ns);
    packet.carry(file.description_end);
}

void carry(auto& packet, Of<RemoveFiles> auto& order) {
    packet.carry_size(order.files, LEAST_OF_A_DOOMED_FILE);
    for (auto& file : order.files) carry(packet, file);
    carry_texts(packet, order.folders);
}

void carry(auto& packet, Of<AskRoom> auto& order) {
    packet.carry(order.awaited);
}

void carry(auto& packet, Of<ReadTexts> auto& order) {
    carry_texts(packet, order.paths);
}

void carry(auto& packet, Of<WriteText> auto& order) {
    packet.carry(order.path);
    packet.carry(order.temporary);
    packet.carry(order.text);
}

void carry(auto& packet, Of<FolderClaim> auto& order) {
    packet.carry(order.folder);
    packet.carry(order.temporary);
    packet.carry(order.file);
    packet.carry(order.text);
}

void carry(auto& packet, Of<ReadBack> auto& order) {
    packet.carry(order.path);
    packet.carry(order.size);
    packet.carry(order.sha256);
}

void carry(auto& packet, Of<Ready> auto& report) {
    packet.carry(report.round_trip_us);
}

void carry(auto& packet, Of<FileState> auto& file) {
    packet.carry(file.size);
    packet.carry(file.modified_ns);
}

void carry(auto& packet, Of<Files> auto& report) {
    packet.carry_size(report.files, sizeof(FileState));
    for (auto& file : report.files) carry(packet, file);
}

void carry(auto& packet, Of<At> auto& report) {
    packet.carry(report.offset);
    packet.carry(report.begins);
}

void carry(auto& packet, Of<Noted> auto& report) {
    packet.carry(report.offset);
    packet.carry(report.sha256);
}

void carry(auto& packet, Of<Whole> auto& report) {
    packet.carry(report.sha256);
    packet.carry(report.share_modified_ns);
}

void carry(auto&, Of<Done> auto&) {}

void carry(auto& packet, Of<Removed> auto& report) {
    packet.carry_size(report.files);
    for (auto& fate : report.files) packet.carry_choice(fate, Fate::missing);
}

void carry(auto& packet, Of<Room> auto& report) {
    packet.carry_presence(report.room);
    if (!report.room) return;
    packet.carry(report.room->free);
    packet.carry(report.room->total);
}

void carry(auto& packet, Of<Failed> auto& report) {
    packet.carry_choice(report.kind, LAST_FAILURE_KIND);
    packet.carry(report.text);
}

void carry(auto& packet, Of<CopySeen> auto& report) {
    packet.carry_choice(report.condition, Condition::other_content);
}

void carry(auto& packet, Of<Contents> auto& report) {
    packet.carry_size(report.texts);
    for (auto& text : report.texts) {
        packet.carry_presence(text);
        if (text) packet.carry(*text);
    }
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

std::string pack(const WorkerOrder& order) {
    return pack_message(order);
}

WorkerOrder unpack_order(const std::string& packet) {
    return unpack_message<WorkerOrder>(packet);
}

std::string pack(const WorkerReport& report) {
    return pack_message(report);
}

WorkerReport unpack_report(const std::string& packet) {
    return unpack_message<WorkerReport>(packet);
}

}  // namespace services
