// Numbers and texts in one packet, for messages between processes of one program.
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

namespace services {

class PacketWriter {
public:
    void number(long long value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void text(const std::string& value) {
        number(static_cast<long long>(value.size()));
        bytes_ += value;
    }
    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

/// Reads in the order of writing. @throws std::runtime_error when there is less than asked for
class PacketReader {
public:
    explicit PacketReader(const std::string& bytes) : bytes_(bytes) {}
    long long number() {
        long long value = 0;
        std::memcpy(&value, take(sizeof value), sizeof value);
        return value;
    }
    bool flag() { return number() != 0; }
    std::string text() {
        const auto size = static_cast<std::size_t>(number());
        return {take(size), size};
    }
    bool at_end() const { return at_ == bytes_.size(); }

private:
    const char* take(std::size_t size) {
        if (size > bytes_.size() - at_) throw std::runtime_error("a packet is too short");
        const char* start = bytes_.data() + at_;
        at_ += size;
        return start;
    }

    const std::string& bytes_;
    std::size_t at_ = 0;
};

}  // namespace services
