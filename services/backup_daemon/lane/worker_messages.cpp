// What the daemon and its copying processes say to each other.
#include "services/backup_daemon/lane/worker_messages.h"

#include "services/backup_daemon/lane/packet.h"

namespace services {
namespace {

void put_texts(PacketWriter& packet, const std::vector<std::string>& texts) {
    packet.number(static_cast<long long>(texts.size()));
    for (const std::string& text : texts) packet.text(text);
}

std::vector<std::string> take_texts(PacketReader& packet) {
    std::vector<std::string> texts(static_cast<std::size_t>(packet.number()));
    for (std::string& text : texts) text = packet.text();
    return texts;
}

void put(PacketWriter& packet, const ListDays& order) {
    packet.text(order.recordings);
    packet.text(order.first);
    packet.text(order.last);
}

void take(PacketReader& packet, ListDays& order) {
    order.recordings = packet.text();
    order.first = packet.text();
    order.last = packet.text();
}

void put(PacketWriter& packet, const ListDay& order) {
    packet.text(order.recordings);
    packet.text(order.day);
    packet.number(order.normal);
    packet.number(order.alarm);
    packet.text(order.remote);
    packet.number(order.ask_share);
}

void take(PacketReader& packet, ListDay& order) {
    order.recordings = packet.text();
    order.day = packet.text();
    order.normal = packet.flag();
    order.alarm = packet.flag();
    order.remote = packet.text();
    order.ask_share = packet.flag();
}

void put(PacketWriter& packet, const CopyJob& job) {
    packet.text(job.source);
    packet.text(job.target);
    packet.text(job.temporary);
    packet.number(job.recorded_size);
    packet.number(job.offset);
    packet.text(job.prefix_sha256);
    packet.number(job.check);
    packet.number(job.side_file.has_value());
    if (!job.side_file) return;
    packet.number(job.side_file->channel);
    packet.text(job.side_file->guid);
    packet.number(job.side_file->start);
}

void take(PacketReader& packet, CopyJob& job) {
    job.source = packet.text();
    job.target = packet.text();
    job.temporary = packet.text();
    job.recorded_size = packet.number();
    job.offset = packet.number();
    job.prefix_sha256 = packet.text();
    job.check = packet.flag();
    if (!packet.flag()) return;
    SideFile& side_file = job.side_file.emplace();
    side_file.channel = static_cast<int>(packet.number());
    side_file.guid = packet.text();
    side_file.start = packet.number();
}

void put(PacketWriter& packet, const RemoveFiles& order) {
    put_texts(packet, order.files);
    put_texts(packet, order.folders);
}

void take(PacketReader& packet, RemoveFiles& order) {
    order.files = take_texts(packet);
    order.folders = take_texts(packet);
}

void put(PacketWriter&, const Ready&) {}
void take(PacketReader&, Ready&) {}
void put(PacketWriter&, const Done&) {}
void take(PacketReader&, Done&) {}

void put(PacketWriter& packet, const Days& report) {
    put_texts(packet, report.names);
}

void take(PacketReader& packet, Days& report) {
    report.names = take_texts(packet);
}

void put(PacketWriter& packet, const Entries& report) {
    for (const DayEntry& entry : report.entries) {
        packet.text(entry.name);
        packet.number(entry.alarm);
        packet.number(entry.size);
        packet.number(entry.modified_ns);
        packet.number(entry.remote_size);
    }
}

void take(PacketReader& packet, Entries& report) {
    while (!packet.at_end()) {
        DayEntry& entry = report.entries.emplace_back();
        entry.name = packet.text();
        entry.alarm = packet.flag();
        entry.size = packet.number();
        entry.modified_ns = packet.number();
        entry.remote_size = packet.number();
    }
}

void put(PacketWriter& packet, const At& report) {
    packet.number(report.offset);
}

void take(PacketReader& packet, At& report) {
    report.offset = packet.number();
}

void put(PacketWriter& packet, const Noted& report) {
    packet.number(report.offset);
    packet.text(report.sha256);
}

void take(PacketReader& packet, Noted& report) {
    report.offset = packet.number();
    report.sha256 = packet.text();
}

void put(PacketWriter& packet, const Copied& report) {
    packet.number(report.result.size);
    packet.number(report.result.modified_ns);
    packet.text(report.result.sha256);
}

void take(PacketReader& packet, Copied& report) {
    report.result.size = packet.number();
    report.result.modified_ns = packet.number();
    report.result.sha256 = packet.text();
}

FailureKind take_kind(PacketReader& packet) {
    const long long number = packet.number();
    if (number < 0 || number > static_cast<long long>(LAST_FAILURE_KIND))
        throw std::runtime_error("a packet tells of a failure of no known kind");
    return static_cast<FailureKind>(number);
}

void put(PacketWriter& packet, const Failed& report) {
    packet.number(static_cast<long long>(report.kind));
    packet.text(report.text);
}

void take(PacketReader& packet, Failed& report) {
    report.kind = take_kind(packet);
    report.text = packet.text();
}

template <typename Message>
std::string pack_message(const Message& message) {
    PacketWriter packet;
    packet.number(static_cast<long long>(message.index()));
    std::visit([&](const auto& which) { put(packet, which); }, message);
    return packet.bytes();
}

/// Reads the alternative that the packet's number names.
template <typename Message, std::size_t Index = 0>
Message unpack_message(PacketReader& packet, std::size_t wanted) {
    if constexpr (Index < std::variant_size_v<Message>) {
        if (wanted != Index) return unpack_message<Message, Index + 1>(packet, wanted);
        std::variant_alternative_t<Index, Message> message;
        take(packet, message);
        return message;
    }
    throw std::runtime_error("a packet is of no known kind");
}

template <typename Message>
Message unpack_whole(const std::string& bytes) {
    PacketReader packet(bytes);
    const auto wanted = static_cast<std::size_t>(packet.number());
    return unpack_message<Message>(packet, wanted);
}

}  // namespace

std::string pack(const Order& order) {
    return pack_message(order);
}

Order unpack_order(const std::string& packet) {
    return unpack_whole<Order>(packet);
}

std::string pack(const Report& report) {
    return pack_message(report);
}

Report unpack_report(const std::string& packet) {
    return unpack_whole<Report>(packet);
}

}  // namespace services
