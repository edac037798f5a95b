// Who is said to be at the other end of real connections, by both ways of looking.
#include "services/peer.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <ostream>

namespace {

using namespace services;
using standalone::FileHandle;

sockaddr_in loopback() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

sockaddr* generic(sockaddr_in& address) {
    return reinterpret_cast<sockaddr*>(&address);
}

/// A connection: `client` made it, `server` is what the listener accepted.
struct Connection {
    Connection() {
        sockaddr_in address = loopback();
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(listener.get(), generic(address), size), 0);
        EXPECT_EQ(listen(listener.get(), 1), 0);
        EXPECT_EQ(getsockname(listener.get(), generic(address), &size), 0);
        EXPECT_EQ(connect(client.get(), generic(address), size), 0);
        server = FileHandle(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        ends = ends_of_client();
    }

    TcpEnds ends_of_client() const {
        TcpEnds found;
        socklen_t size = sizeof found.own;
        EXPECT_EQ(getsockname(client.get(), generic(found.own), &size), 0);
        EXPECT_EQ(getpeername(client.get(), generic(found.other), &size), 0);
        return found;
    }

    void send_a_byte() const { EXPECT_EQ(write(client.get(), "x", 1), 1); }
    void close_client() { client.close(); }
    void reset_client() {
        const linger at_once{1, 0};
        setsockopt(client.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        client.close();
    }

    FileHandle listener{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    FileHandle client{socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    FileHandle server;
    TcpEnds ends;
};

using Look = std::function<std::optional<uid_t>(const TcpEnds&)>;

struct Way {
    const char* name;
    Look look;
};

void PrintTo(const Way& way, std::ostream* out) {
    *out << way.name;
}

class PeerLook : public ::testing::TestWithParam<Way> {
protected:
    std::optional<uid_t> look(const TcpEnds& ends) const { return GetParam().look(ends); }
    Connection connection_;
};

TEST_P(PeerLook, FindsWhoMadeASocketThatIsHeld) {
    EXPECT_EQ(look(connection_.ends), geteuid());
}

TEST_P(PeerLook, FindsWhoHasSaidAllAndListens) {
    connection_.send_a_byte();
    shutdown(connection_.client.get(), SHUT_WR);
    EXPECT_EQ(look(connection_.ends), geteuid());
}

// The kernel says of these that they are root's.
TEST_P(PeerLook, FindsNobodyWhereTheSocketIsClosed) {
    connection_.send_a_byte();
    connection_.close_client();
    EXPECT_EQ(look(connection_.ends), std::nullopt);
}

TEST_P(PeerLook, FindsNobodyWhereTheConnectionWasReset) {
    connection_.send_a_byte();
    connection_.reset_client();
    EXPECT_EQ(look(connection_.ends), std::nullopt);
}

TEST_P(PeerLook, FindsNobodyWhereThereWasNoSuchSocket) {
    TcpEnds other = connection_.ends;
    other.own.sin_addr.s_addr = htonl(INADDR_LOOPBACK + 1);
    EXPECT_EQ(look(other), std::nullopt);
}

// Where no connection has these ends, the kernel answers with who listens on the port.
TEST_P(PeerLook, DoesNotTakeAListenerForAnEnd) {
    const TcpEnds listener{connection_.ends.other, loopback()};
    EXPECT_EQ(look(listener), std::nullopt);
}

TEST_P(PeerLook, TellsTheTwoEndsApart) {
    connection_.server.close();
    const TcpEnds swapped{connection_.ends.other, connection_.ends.own};
    EXPECT_EQ(look(swapped), std::nullopt);
}

std::optional<uid_t> ask_kernel(const TcpEnds& ends) {
    return SockDiag().user(ends);
}

INSTANTIATE_TEST_SUITE_P(Ways, PeerLook,
                         ::testing::Values(Way{"SockDiag", ask_kernel},
                                           Way{"SocketList", user_in_socket_list}),
                         [](const auto& way) { return way.param.name; });

TEST(SockDiag, AnswersHere) {
    EXPECT_TRUE(SockDiag().answers());
}

TEST(Peers, SaysWhoIsAtTheOtherEnd) {
    const Connection connection;
    EXPECT_EQ(Peers().user(connection.server.get()), geteuid());
}

TEST(Peers, SaysNobodyOnceTheOtherEndIsGone) {
    Connection closed;
    closed.close_client();
    EXPECT_EQ(Peers().user(closed.server.get()), std::nullopt);
    Connection reset;
    reset.reset_client();
    EXPECT_EQ(Peers().user(reset.server.get()), std::nullopt);
}

TEST(Peers, SaysNobodyForWhatIsNoConnection) {
    EXPECT_EQ(Peers().user(-1), std::nullopt);
    EXPECT_EQ(Peers().user(0), std::nullopt);
}

}  // namespace
