// Numbers and texts in one packet, for messages between processes of one program.
#pragma once

#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace services {

/// Writes values one behind the other. It has a function of the same name for all that PacketReader
/// reads, so that one list of values serves both.
class PacketWriter {
public:
    void carry(long long value) {
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void carry(int value) { carry(static_cast<long long>(value)); }
    void carry(bool value) { carry(static_cast<long long>(value)); }
    void carry(const std::string& value) {
        carry(static_cast<long long>(value.size()));
        bytes_ += value;
    }

    /// How many elements follow.
    template <typename Element>
    void carry_size(const std::vector<Element>& elements, std::size_t /*least*/ = 0) {
        carry(static_cast<long long>(elements.size()));
    }

    /// Whether the value follows.
    template <typename Value>
    void carry_presence(const std::optional<Value>& value) {
        carry(value.has_value());
    }

    /// One of an enumeration that begins at 0 and ends with `last`.
    template <typename Choice>
    void carry_choice(Choice value, Choice /*last*/) {
        carry(static_cast<long long>(value));
    }

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

/// Reads values in the order of their writing. Whatever the bytes are, nothing is taken that a
/// PacketWriter cannot have written, and no more memory is asked for than the packet can fill.
/// @throws std::runtime_error from every function, when the packet is not as it should be
class PacketReader {
public:
    /// The bytes outlive the reader.
    explicit PacketReader(const std::string& bytes) : bytes_(bytes) {}

    void carry(long long& value) { std::memcpy(&value, take(sizeof value), sizeof value); }
    void carry(int& value) {
        using Limits = std::numeric_limits<int>;
        value = static_cast<int>(number(Limits::min(), Limits::max()));
    }
    void carry(bool& value) { value = number(0, 1) == 1; }
    void carry(std::string& value) {
        const std::size_t size = count(1);
        value.assign(take(size), size);
    }

    /// Makes room for as many elements as follow.
    /// @param least bytes that each takes in the packet at least
    template <typename Element>
    void carry_size(std::vector<Element>& elements, std::size_t least = sizeof(long long)) {
        elements.resize(count(least));
    }

    template <typename Value>
    void carry_presence(std::optional<Value>& value) {
        bool present = false;
        carry(present);
        if (present) value.emplace();
    }

    template <typename Choice>
    void carry_choice(Choice& value, Choice last) {
        value = static_cast<Choice>(number(0, static_cast<long long>(last)));
    }

    /// To be called when everything has been read.
    void end() const {
        if (left() != 0) throw std::runtime_error("a packet is too long");
    }

private:
    std::size_t left() const { return bytes_.size() - at_; }

    const char* take(std::size_t size) {
        if (size > left()) throw std::runtime_error("a packet is too short");
        const char* start = bytes_.data() + at_;
        at_ += size;
        return start;
    }

    long long number(long long least, long long most) {
        long long value = 0;
        carry(value);
        if (value < least || value > most)
            throw std::runtime_error("a packet has a number that cannot be");
        return value;
    }

    /// How many things of at least `size` bytes follow.
    std::size_t count(std::size_t size) {
        long long value = 0;
        carry(value);
        // Less than none is more than any packet has.
        if (static_cast<unsigned long long>(value) > left() / size)
            throw std::runtime_error("a packet is too short");
        return static_cast<std::size_t>(value);
    }

    const std::string& bytes_;
    std::size_t at_ = 0;
};

}  // namespace services
