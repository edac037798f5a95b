// Packets arrive whole and in order, up to the largest; the end of a connection is seen.
#include "services/backup_daemon/lane/packet_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <filesystem>
#include <iterator>

using namespace services;

namespace {

class PacketSocketTest : public testing::Test {
protected:
    PacketSocketTest() {
        auto sockets = connected_sockets();
        mine = std::move(sockets.first);
        theirs = std::move(sockets.second);
    }

    standalone::FileHandle mine;
    standalone::FileHandle theirs;
};

TEST_F(PacketSocketTest, PacketsKeepTheirBordersAndOrder) {
    EXPECT_TRUE(send_packet(mine.get(), "one"));
    EXPECT_TRUE(send_packet_at_once(mine.get(), std::string("t\0o", 3)));
    EXPECT_EQ(wait_for_packet(theirs.get()), "one");
    EXPECT_EQ(wait_for_packet(theirs.get()), std::string("t\0o", 3));
}

TEST_F(PacketSocketTest, LargestPacketArrivesWholeEitherWay) {
    const std::string largest(LARGEST_PACKET, 'x');
    EXPECT_TRUE(send_packet_at_once(mine.get(), largest));
    EXPECT_TRUE(wait_for_packet(theirs.get()) == largest);
    EXPECT_TRUE(send_packet(theirs.get(), largest));
    EXPECT_TRUE(look_for_packet(mine.get()).packet == largest);
}

TEST_F(PacketSocketTest, LargerPacketIsRefusedAndNotCutOff) {
    EXPECT_FALSE(send_packet(mine.get(), std::string(LARGEST_PACKET + 1, 'x')));
    EXPECT_FALSE(look_for_packet(theirs.get()).packet);
}

TEST_F(PacketSocketTest, LargerPacketThanAnybodySendsEndsTheTalk) {
    const int room = 1024 * 1024;
    setsockopt(theirs.get(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room);
    const std::string large(LARGEST_PACKET + 1, 'x');
    for (int times = 0; times < 2; ++times)
        ASSERT_GT(send(theirs.get(), large.data(), large.size(), MSG_NOSIGNAL), 0);
    const Received received = look_for_packet(mine.get());
    EXPECT_FALSE(received.packet);
    EXPECT_TRUE(received.ended);
    EXPECT_EQ(wait_for_packet(mine.get()), std::nullopt);
}

/// How many descriptors this process has.
std::ptrdiff_t open_descriptors() {
    const std::filesystem::directory_iterator begin("/proc/self/fd");
    return std::distance(begin, {});
}

TEST_F(PacketSocketTest, OpenFileComesAlongAndOnlyWithItsPacket) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const standalone::FileHandle reading(ends[0]);
    standalone::FileHandle writing(ends[1]);
    EXPECT_TRUE(send_packet_at_once(mine.get(), "with", writing.get()));
    EXPECT_TRUE(send_packet_at_once(mine.get(), "without"));
    writing.close();
    const auto with = wait_for_delivery(theirs.get());
    const auto without = wait_for_delivery(theirs.get());
    ASSERT_TRUE(with && without);
    EXPECT_EQ(with->packet, "with");
    EXPECT_EQ(without->packet, "without");
    EXPECT_FALSE(without->file);
    EXPECT_TRUE(fcntl(with->file.get(), F_GETFD) & FD_CLOEXEC);
    char byte = 0;
    EXPECT_EQ(write(with->file.get(), "x", 1), 1);
    EXPECT_EQ(read(reading.get(), &byte, 1), 1);
    EXPECT_EQ(byte, 'x');
}

TEST_F(PacketSocketTest, FileThatNobodyHasAskedForIsNotTaken) {
    for (const bool waiting : {true, false}) {
        EXPECT_TRUE(send_packet_at_once(theirs.get(), "look what I have", theirs.get()));
        const auto before = open_descriptors();
        const auto packet =
            waiting ? wait_for_packet(mine.get()) : look_for_packet(mine.get()).packet;
        EXPECT_EQ(packet, "look what I have");
        EXPECT_EQ(open_descriptors(), before);
    }
}

TEST_F(PacketSocketTest, LookingDoesNotWait) {
    const Received nothing = look_for_packet(mine.get());
    EXPECT_FALSE(nothing.packet);
    EXPECT_FALSE(nothing.ended);
}

TEST_F(PacketSocketTest, EndOfTheOtherSideIsSeenAfterItsLastPacket) {
    EXPECT_TRUE(send_packet(theirs.get(), "last words"));
    theirs.close();
    EXPECT_EQ(look_for_packet(mine.get()).packet, "last words");
    EXPECT_TRUE(look_for_packet(mine.get()).ended);
    EXPECT_EQ(wait_for_packet(mine.get()), std::nullopt);
    EXPECT_FALSE(wait_for_delivery(mine.get()));
    EXPECT_FALSE(send_packet(mine.get(), "anybody?"));
    EXPECT_FALSE(send_packet_at_once(mine.get(), "anybody?"));
}

TEST_F(PacketSocketTest, SendingAtOnceDoesNotWaitForOneWhoDoesNotRead) {
    const std::string packet(LARGEST_PACKET, 'x');
    int sent = 0;
    while (send_packet_at_once(mine.get(), packet)) ASSERT_LT(++sent, 100);
    EXPECT_GE(sent, 1);
}

TEST_F(PacketSocketTest, SocketsAreClosedWhenAnotherProgramIsRun) {
    EXPECT_TRUE(fcntl(mine.get(), F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(theirs.get(), F_GETFD) & FD_CLOEXEC);
}

}  // namespace
