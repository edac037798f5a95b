// A packet gives back what was put in, and refuses everything that nobody put in.
#include "services/backup_daemon/lane/packet.h"

#include <gtest/gtest.h>

#include <stdexcept>

using namespace services;

namespace {

enum class Colour { red, green, blue };

std::string packet_of(long long number) {
    PacketWriter writer;
    writer.carry(number);
    return writer.bytes();
}

/// Reads one value of a type.
template <typename Value>
Value read(const std::string& packet) {
    PacketReader reader(packet);
    Value value{};
    reader.carry(value);
    return value;
}

TEST(Packet, ValuesComeBackInTheirOrder) {
    PacketWriter writer;
    writer.carry(1LL << 60);
    writer.carry(std::string("a\0b", 3));
    writer.carry(true);
    writer.carry(-5);
    writer.carry(std::string());
    writer.carry_choice(Colour::blue, Colour::blue);
    PacketReader reader(writer.bytes());
    long long large = 0;
    std::string text = "before";
    bool flag = false;
    int small = 0;
    std::string empty = "before";
    Colour colour = Colour::red;
    reader.carry(large);
    reader.carry(text);
    reader.carry(flag);
    reader.carry(small);
    reader.carry(empty);
    reader.carry_choice(colour, Colour::blue);
    EXPECT_NO_THROW(reader.end());
    EXPECT_EQ(large, 1LL << 60);
    EXPECT_EQ(text, std::string("a\0b", 3));
    EXPECT_TRUE(flag);
    EXPECT_EQ(small, -5);
    EXPECT_EQ(empty, "");
    EXPECT_EQ(colour, Colour::blue);
}

TEST(Packet, NumbersThatNobodyWritesAreRefused) {
    for (const long long number : {2LL, -1LL, 1LL << 32})
        EXPECT_THROW(read<bool>(packet_of(number)), std::runtime_error) << number;
    for (const long long number : {1LL << 31, -(1LL << 31) - 1, 1LL << 40})
        EXPECT_THROW(read<int>(packet_of(number)), std::runtime_error) << number;
    EXPECT_EQ(read<int>(packet_of(-(1LL << 31))), -(1LL << 31));
    EXPECT_EQ(read<int>(packet_of((1LL << 31) - 1)), (1LL << 31) - 1);
    for (const long long number : {3LL, -1LL, 1LL << 32}) {
        const std::string packet = packet_of(number);
        Colour colour = Colour::red;
        EXPECT_THROW(PacketReader(packet).carry_choice(colour, Colour::blue), std::runtime_error);
    }
}

TEST(Packet, NumberThatIsCutOffIsRefused) {
    for (std::size_t size = 0; size < sizeof(long long); ++size) {
        const std::string packet = packet_of(5).substr(0, size);
        PacketReader reader(packet);
        long long number = 0;
        EXPECT_THROW(reader.carry(number), std::runtime_error) << size;
    }
}

TEST(Packet, TextThatClaimsMoreThanThePacketHasIsRefused) {
    for (const long long size : {4LL, 1LL << 40, -1LL})
        EXPECT_THROW(read<std::string>(packet_of(size) + "abc"), std::runtime_error) << size;
    EXPECT_EQ(read<std::string>(packet_of(3) + "abc"), "abc");
}

TEST(Packet, CountThatThePacketCannotFillIsRefusedBeforeRoomIsMade) {
    std::vector<std::string> texts;
    for (const long long size : {3LL, 1LL << 60, -1LL}) {
        const std::string packet = packet_of(size) + packet_of(0) + packet_of(0);
        EXPECT_THROW(PacketReader(packet).carry_size(texts), std::runtime_error) << size;
        EXPECT_EQ(texts.capacity(), 0U);
    }
    const std::string packet = packet_of(2) + packet_of(0) + packet_of(0);
    PacketReader(packet).carry_size(texts);
    EXPECT_EQ(texts.size(), 2U);
}

TEST(Packet, PresenceMakesTheValueOrLeavesItAway) {
    std::optional<int> value;
    const std::string absent = packet_of(0);
    PacketReader(absent).carry_presence(value);
    EXPECT_FALSE(value);
    const std::string present = packet_of(1);
    PacketReader(present).carry_presence(value);
    EXPECT_TRUE(value);
}

TEST(Packet, WhatIsLeftAtTheEndIsRefused) {
    const std::string packet = packet_of(1) + "x";
    PacketReader reader(packet);
    long long number = 0;
    reader.carry(number);
    EXPECT_THROW(reader.end(), std::runtime_error);
}

}  // namespace
