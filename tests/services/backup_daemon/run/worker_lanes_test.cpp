// Lanes that are real processes, against ports on loopback where no server is.
#include "services/backup_daemon/run/worker_lanes.h"

#include <arpa/inet.h>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/lane/packet_socket.h"
#include "services/clock.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

using Texts = std::vector<std::string>;

// Longer than anything here takes; only a test that fails waits for so long.
constexpr std::chrono::seconds PATIENCE(20);

struct FreeLoop {
    void operator()(event_base* loop) const { event_base_free(loop); }
};

/// A port of loopback that takes connections and says nothing to them.
class SilentServer {
public:
    SilentServer() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        if (bind(socket_.get(), generic(), size) != 0 || listen(socket_.get(), 5) != 0 ||
            getsockname(socket_.get(), generic(), &size) != 0)
            throw std::runtime_error("no port to listen on");
    }

    int port() const { return ntohs(address_.sin_port); }
    void close() { socket_ = standalone::FileHandle(); }

    /// Takes one connection, which need not have come yet.
    standalone::FileHandle accept() {
        EXPECT_TRUE(is_readable(socket_.get()));
        return standalone::FileHandle(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    }

    /// Whether the other end of a connection is gone, what it had said apart.
    static bool is_closed(int connection) {
        char bytes[4096];
        for (;;) {
            if (!is_readable(connection)) return false;
            if (recv(connection, bytes, sizeof bytes, 0) <= 0) return true;
        }
    }

private:
    sockaddr* generic() { return reinterpret_cast<sockaddr*>(&address_); }

    static bool is_readable(int descriptor) {
        pollfd watched{descriptor, POLLIN, 0};
        return poll(&watched, 1, static_cast<int>(PATIENCE / 1ms)) == 1;
    }

    standalone::FileHandle socket_;
    sockaddr_in address_{};
};

SmbLogin login_to(int port) {
    return {.server = "127.0.0.1",
            .port = port,
            .share = "backup",
            .user = "somebody",
            .password = "secret"};
}

/// In a lane's process.
void say(int socket, const Report& report) {
    send_packet(socket, pack(report));
}

class WorkerLanesTest : public testing::Test {
protected:
    ~WorkerLanesTest() override {
        lanes.reset();
        while (waitpid(-1, nullptr, 0) > 0) continue;
    }

    /// Makes the pool, of lanes that do this or log in there.
    template <typename Lanes>
    void make_pool(Lanes what) {
        lanes = std::make_unique<WorkerLanes>(loop.get(), what);
        lanes->listen({[this](LaneId lane, const Report& report) { note(lane, report); },
                       [this](LaneId lane, const std::string& why) {
                           said.push_back(std::to_string(lane) + " is lost: " + why);
                       }});
    }

    void note(LaneId lane, const Report& report) {
        std::string text = std::to_string(lane) + " says ";
        if (const auto* days = std::get_if<Days>(&report)) {
            text += days->names.at(0);
        } else if (const auto* failed = std::get_if<Failed>(&report)) {
            text += failed->kind == FailureKind::lost ? "lost" : failed->text;
        } else {
            text += std::to_string(report.index());
        }
        said.push_back(text);
        if (drop_on_report) lanes->drop(lane);
    }

    /// Lets the loop go on until so much has been said.
    void wait_for(std::size_t count) {
        bool too_long = false;
        const auto alarm = clock.after(PATIENCE, [&] { too_long = true; });
        while (said.size() < count && !too_long) event_base_loop(loop.get(), EVLOOP_ONCE);
        EXPECT_GE(said.size(), count);
    }

    /// Whatever the loop has to do now.
    void look_once() { event_base_loop(loop.get(), EVLOOP_NONBLOCK); }

    std::unique_ptr<event_base, FreeLoop> loop{event_base_new()};
    LoopClock clock{loop.get()};
    std::vector<std::string> said;
    bool drop_on_report = false;
    std::unique_ptr<WorkerLanes> lanes;
};

TEST_F(WorkerLanesTest, LaneGetsItsOwnOrdersAndItsReportsAreTold) {
    make_pool([](int socket) {
        say(socket, Ready());
        while (const auto packet = wait_for_packet(socket)) {
            const auto order = std::get<ListDays>(unpack_order(*packet));
            say(socket, Days{{order.recordings}});
        }
    });
    EXPECT_EQ(lanes->open(), 1);
    wait_for(1);
    EXPECT_EQ(lanes->open(), 2);
    wait_for(2);
    lanes->give(2, ListDays{"/rec/yard", "", ""});
    wait_for(3);
    lanes->give(1, ListDays{"/rec/door", "", ""});
    wait_for(4);
    EXPECT_EQ(said, (Texts{"1 says 0", "2 says 0", "2 says /rec/yard", "1 says /rec/door"}));
}

TEST_F(WorkerLanesTest, AllThatALaneSaidIsToldBeforeItsEnd) {
    make_pool([](int socket) {
        for (const char* name : {"a", "b", "c"}) say(socket, Days{{name}});
    });
    lanes->open();
    EXPECT_TRUE(said.empty()) << "nothing is told from inside a call";
    wait_for(4);
    look_once();
    EXPECT_EQ(said,
              (Texts{"1 says a", "1 says b", "1 says c", "1 is lost: the copying process ended"}));
    EXPECT_EQ(lanes->open(), 2) << "no number is given twice";
}

TEST_F(WorkerLanesTest, NothingIsToldOfALaneThatWasDropped) {
    drop_on_report = true;
    make_pool([](int socket) {
        for (const char* name : {"a", "b", "c"}) say(socket, Days{{name}});
    });
    lanes->open();
    wait_for(1);
    lanes->open();
    wait_for(2);
    look_once();
    EXPECT_EQ(said, (Texts{"1 says a", "2 says a"}));
}

TEST_F(WorkerLanesTest, LanesAreLostEachByItself) {
    make_pool([](int socket) {
        say(socket, Ready());
        wait_for_packet(socket);
    });
    lanes->open();
    wait_for(1);
    lanes->open();
    wait_for(2);
    lanes->give(2, ListDays{});
    wait_for(3);
    look_once();
    EXPECT_EQ(said, (Texts{"1 says 0", "2 says 0", "2 is lost: the copying process ended"}));
}

TEST_F(WorkerLanesTest, LaneThatCannotConnectSaysSoAndIsLost) {
    SilentServer server;
    server.close();
    make_pool(login_to(server.port()));
    lanes->open();
    wait_for(2);
    EXPECT_EQ(said, (Texts{"1 says lost", "1 is lost: the copying process ended"}));
}

TEST_F(WorkerLanesTest, DroppingEndsAProcessThatWaitsForAServer) {
    SilentServer server;
    make_pool(login_to(server.port()));
    lanes->open();
    const auto first = server.accept();
    lanes->open();
    const auto second = server.accept();
    lanes->drop(1);
    EXPECT_TRUE(SilentServer::is_closed(first.get()));
    lanes->drop(1);
    look_once();
    EXPECT_TRUE(said.empty());
    lanes->drop(2);
    EXPECT_TRUE(SilentServer::is_closed(second.get()));
}

TEST_F(WorkerLanesTest, ProcessesEndWithThePool) {
    SilentServer server;
    make_pool(login_to(server.port()));
    lanes->open();
    const auto first = server.accept();
    lanes->open();
    const auto second = server.accept();
    lanes.reset();
    EXPECT_TRUE(SilentServer::is_closed(first.get()));
    EXPECT_TRUE(SilentServer::is_closed(second.get()));
    look_once();
    EXPECT_TRUE(said.empty());
}

}  // namespace
