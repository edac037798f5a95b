// Packets arrive whole and in order, up to the largest; the end of a connection is seen.
#include "services/backup_daemon/lane/packet_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>

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
