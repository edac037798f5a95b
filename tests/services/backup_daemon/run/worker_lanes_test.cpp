// Lanes that are real processes, against ports on loopback where no server is.
#include "services/backup_daemon/run/worker_lanes.h"

#include <arpa/inet.h>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/lane/packet_socket.h"
#include "services/clock.h"
#include "tests/services/backup_daemon/lane/file_answers.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

using namespace services;
using namespace std::chrono_literals;

namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t MEBIBYTE = std::size_t{1024} * 1024;

struct FreeLoop {
    void operator()(event_base* loop) const { event_base_free(loop); }
};

/// A port of loopback that takes connections and says nothing to them, or that takes none: it is
/// nobody else's either then.
class SilentServer {
public:
    explicit SilentServer(bool listens = true)
        : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        if (bind(socket_.get(), generic(), size) != 0 ||
            (listens && listen(socket_.get(), 5) != 0) ||
            getsockname(socket_.get(), generic(), &size) != 0)
            throw std::runtime_error("no port to listen on");
    }

    int port() const { return ntohs(address_.sin_port); }

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
        return poll(&watched, 1, PATIENCE_MS) == 1;
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
void say(int socket, const WorkerReport& report) {
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
            const auto order = std::get<RemoveFiles>(unpack_order(*packet));
            say(socket, Failed{FailureKind::other, order.files.at(0).path});
        }
    });
    EXPECT_EQ(lanes->open(), 1);
    wait_for(1);
    EXPECT_EQ(lanes->open(), 2);
    wait_for(2);
    lanes->give(2, RemoveFiles{{{"yard"}}, {}});
    wait_for(3);
    lanes->give(1, RemoveFiles{{{"door"}}, {}});
    wait_for(4);
    EXPECT_EQ(said, (Texts{"1 says 0", "2 says 0", "2 says yard", "1 says door"}));
}

TEST_F(WorkerLanesTest, AllThatALaneSaidIsToldBeforeItsEnd) {
    make_pool([](int socket) {
        say(socket, Ready());
        wait_for_packet(socket);
        for (int times = 0; times < 50; ++times) say(socket, At{0});
        say(socket, Removed());
    });
    lanes->open();
    EXPECT_TRUE(said.empty()) << "nothing is told from inside a call";
    wait_for(1);
    lanes->give(1, RemoveFiles());
    wait_for(53);
    look_once();
    Texts expected(53, "1 says 3");
    expected.front() = "1 says 0";
    expected[51] = "1 says 6";
    expected.back() = "1 is lost: the copying process ended";
    EXPECT_EQ(said, expected);
    EXPECT_EQ(lanes->open(), 2) << "no number is given twice";
}

TEST_F(WorkerLanesTest, NothingIsToldOfALaneThatWasDropped) {
    drop_on_report = true;
    make_pool([](int socket) {
        say(socket, Ready());
        for (const char* name : {"a", "b", "c"}) say(socket, Failed{FailureKind::other, name});
    });
    lanes->open();
    wait_for(1);
    lanes->open();
    wait_for(2);
    look_once();
    EXPECT_EQ(said, (Texts{"1 says 0", "2 says 0"}));
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
    lanes->give(2, RemoveFiles());
    wait_for(3);
    look_once();
    EXPECT_EQ(said, (Texts{"1 says 0", "2 says 0", "2 is lost: the copying process ended"}));
}

CopyJob copy_of(const TemporaryFolder& recordings, const std::string& source) {
    CopyJob job;
    job.recordings = recordings.path();
    job.source = source;
    return job;
}

/// Connects, then waits for orders and does nothing about them.
void be_idle(int socket) {
    say(socket, Ready());
    while (wait_for_packet(socket)) continue;
}

TEST_F(WorkerLanesTest, WhatThisMachineHasIsToldWithoutTheProcessAndFromTheLoop) {
    const TemporaryFolder folder;
    std::filesystem::create_directories(folder.path() + "/2024-03-01");
    make_pool(be_idle);
    lanes->open();
    wait_for(1);
    lanes->give(1, ListDays{folder.path(), "", "9999-12-31"});
    EXPECT_EQ(said.size(), 1U) << "nothing is told from inside a call";
    wait_for(2);
    ListDay day;
    day.recordings = folder.path();
    day.day = "2024-03-01";
    lanes->give(1, day);
    EXPECT_EQ(said.size(), 2U);
    wait_for(4);
    lanes->give(1, copy_of(folder, "2024-03-01/01-00-00.mp4"));
    wait_for(5);
    said.back().resize(std::string("1 says /").size());
    EXPECT_EQ(said, (Texts{"1 says 0", "1 says 2024-03-01", "1 says 2", "1 says 8", "1 says /"}));
}

TEST_F(WorkerLanesTest, NothingBeginsOnALaneThatWasDroppedMeanwhile) {
    make_pool(be_idle);
    lanes->open();
    wait_for(1);
    lanes->give(1, ListDays());
    lanes->drop(1);
    look_once();
    EXPECT_EQ(said, Texts{"1 says 0"});
}

TEST_F(WorkerLanesTest, OrderThatTheListenerGivesAtOnceIsCarriedOut) {
    make_pool([](int socket) {
        say(socket, Ready());
        while (wait_for_packet(socket)) say(socket, Removed());
    });
    lanes->listen({[this](LaneId lane, const Report& report) {
                       note(lane, report);
                       if (said.size() < 4) lanes->give(lane, RemoveFiles());
                   },
                   {}});
    lanes->open();
    wait_for(4);
    EXPECT_EQ(said, (Texts{"1 says 0", "1 says 6", "1 says 6", "1 says 6"}));
}

TEST_F(WorkerLanesTest, CopyingProcessGetsTheOpenRecording) {
    const TemporaryFolder folder;
    std::ofstream(folder.path() + "/recording") << "content";
    make_pool([](int socket) {
        say(socket, Ready());
        const auto delivery = wait_for_delivery(socket);
        char bytes[8]{};
        const bool got = read(delivery->file.get(), bytes, sizeof bytes) > 0;
        say(socket, Failed{FailureKind::other, got ? bytes : "nothing"});
        wait_for_packet(socket);
    });
    lanes->open();
    wait_for(1);
    lanes->give(1, copy_of(folder, "recording"));
    wait_for(2);
    EXPECT_EQ(said.back(), "1 says content");
}

constexpr char LIES[] = "1 is lost: the copying process said what nobody had asked for";

/// What a taken-over process says when it has got an order, and what is believed of it.
struct Lie {
    Order order;
    std::vector<WorkerReport> reports;
    Texts believed = {};
};

class LyingProcessTest : public WorkerLanesTest {
protected:
    LyingProcessTest() { std::ofstream(folder.path() + "/recording") << "0123456789"; }

    CopyJob copy() const { return copy_of(folder, "recording"); }

    /// Says these without any order.
    void open_with(const std::vector<WorkerReport>& reports) {
        make_pool([reports](int socket) {
            for (const WorkerReport& report : reports) say(socket, report);
            while (wait_for_packet(socket)) continue;
        });
        lanes->open();
    }

    void expect_lost(const Lie& lie) {
        said.clear();
        make_pool([&lie](int socket) {
            say(socket, Ready());
            wait_for_packet(socket);
            for (const WorkerReport& report : lie.reports) say(socket, report);
            while (wait_for_packet(socket)) continue;
        });
        lanes->open();
        wait_for(1);
        lanes->give(1, lie.order);
        Texts expected{"1 says 0"};
        expected.insert(expected.end(), lie.believed.begin(), lie.believed.end());
        expected.emplace_back(LIES);
        wait_for(expected.size());
        look_once();
        EXPECT_EQ(said, expected);
    }

    const std::string hash = std::string(64, 'a');
    TemporaryFolder folder;
};

TEST_F(LyingProcessTest, SaysSomethingBeforeItIsConnected) {
    for (const WorkerReport& report :
         {WorkerReport(At{0}), WorkerReport(Removed()), WorkerReport(Whole{hash, 0}),
          WorkerReport(Files()), WorkerReport(Noted{0, ""})}) {
        said.clear();
        open_with({report});
        wait_for(1);
        EXPECT_EQ(said, Texts{LIES});
    }
}

TEST_F(LyingProcessTest, SaysSomethingWithoutAnOrder) {
    for (const WorkerReport& report :
         {WorkerReport(Ready()), WorkerReport(At{0}), WorkerReport(Removed()),
          WorkerReport(Whole{hash, 0}), WorkerReport(Failed{FailureKind::full, "no room"})}) {
        said.clear();
        open_with({Ready(), report});
        wait_for(2);
        EXPECT_EQ(said, (Texts{"1 says 0", LIES}));
    }
}

/// Raised in one process, waited for in the one that it was forked from.
class SharedFlag {
public:
    SharedFlag()
        : raised_(new (mmap(nullptr, sizeof *raised_, PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<bool>) {}
    ~SharedFlag() { munmap(raised_, sizeof *raised_); }
    SharedFlag(const SharedFlag&) = delete;
    SharedFlag& operator=(const SharedFlag&) = delete;

    void raise() const { *raised_ = true; }
    void wait() const {
        while (!*raised_) usleep(1000);
    }

private:
    std::atomic<bool>* raised_;
};

TEST_F(LyingProcessTest, AnswersAnOrderThatItHasNotGotYet) {
    for (const WorkerReport& report :
         {WorkerReport(Whole{hash, 0}), WorkerReport(At{0}), WorkerReport(Failed())}) {
        said.clear();
        const SharedFlag said_both;
        make_pool([report, &said_both](int socket) {
            for (const WorkerReport& word : {WorkerReport(Ready()), report}) say(socket, word);
            said_both.raise();
            while (wait_for_packet(socket)) continue;
        });
        lanes->listen({[this, &said_both](LaneId lane, const Report& ready) {
                           note(lane, ready);
                           said_both.wait();
                           lanes->give(lane, copy());
                       },
                       [this](LaneId lane, const std::string& why) {
                           said.push_back(std::to_string(lane) + " is lost: " + why);
                       }});
        lanes->open();
        wait_for(2);
        look_once();
        EXPECT_EQ(said, (Texts{"1 says 0", LIES}));
    }
}

TEST_F(LyingProcessTest, SaysWhatIsNoAnswerToItsOrder) {
    expect_lost({RemoveFiles(), {Whole{hash, 0}}});
    expect_lost({RemoveFiles(), {Files()}});
    expect_lost({RemoveFiles(), {At{1}}});
    expect_lost({RemoveFiles(), {Ready()}});
    expect_lost({copy(), {Removed()}});
    expect_lost({copy(), {files_of({1})}});
    expect_lost({copy(), {Ready()}});
}

TEST_F(LyingProcessTest, EndsItsOrderTwice) {
    expect_lost({RemoveFiles(), {Removed(), Removed()}, {"1 says 6"}});
    expect_lost({copy(), {Whole{hash, 0}, Whole{hash, 0}}, {"1 says 5"}});
    expect_lost({copy(), {Failed{FailureKind::other, "once"}, Failed()}, {"1 says once"}});
}

TEST_F(LyingProcessTest, SaysOfAFileWhatCannotBe) {
    expect_lost({copy(), {At{10}, At{11}}, {"1 says 3"}});
    expect_lost({copy(), {At{-1}}});
    expect_lost({copy(), {Noted{10, hash}, Noted{11, hash}}, {"1 says 4"}});
    expect_lost({copy(), {Noted{5, "no hash"}}});
    expect_lost({copy(), {Whole{"no hash", 0}}});
    expect_lost({copy(), {Whole{"", 0}}});
}

TEST_F(LyingProcessTest, SaysOfADayWhatNobodyAskedFor) {
    std::filesystem::create_directories(folder.path() + "/2024-03-01");
    std::ofstream(folder.path() + "/2024-03-01/01-00-00.mp4") << "content";
    const ListDay day{.recordings = folder.path(),
                      .day = "2024-03-01",
                      .normal = true,
                      .alarm = true,
                      .remote = "door/2024-03-01",
                      .ask_share = true};
    expect_lost({day, {files_of({1, 2})}, {"1 says 3"}});
    expect_lost({day, {Files()}, {"1 says 3"}});
    expect_lost({day, {files_of({-2})}, {"1 says 3"}});
    expect_lost({day, {Removed()}, {"1 says 3"}});
    expect_lost({day, {files_of({7}), files_of({7})}, {"1 says 3", "1 says 2", "1 says 8"}});
}

TEST_F(WorkerLanesTest, ProcessThatTalksWithoutEndKeepsNobodyElseFromBeingHeard) {
    constexpr std::size_t MANY = 50'000;
    make_pool([](int socket) {
        say(socket, Ready());
        wait_for_packet(socket);
        for (std::size_t times = 0; times < MANY; ++times) say(socket, At{0});
        wait_for_packet(socket);
    });
    lanes->open();
    wait_for(1);
    lanes->give(1, RemoveFiles());
    wait_for(2);
    std::size_t heard = 0;
    const auto alarm = clock.after({}, [&] { heard = said.size(); });
    wait_for(MANY + 1);
    EXPECT_GT(heard, 0U);
    EXPECT_LT(heard, MANY);
}

TEST_F(WorkerLanesTest, ProcessThatTakesAllMemoryIsLostAlone) {
    make_pool([](int socket) {
        say(socket, Ready());
        const auto order = std::get<RemoveFiles>(unpack_order(*wait_for_packet(socket)));
        // Not by way of the allocator: a sanitizer's waits for itself when there is no memory left.
        while (order.files.at(0).path == "greedy")
            if (mmap(nullptr, MEBIBYTE, PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) ==
                MAP_FAILED)
                std::abort();
        say(socket, Removed{{Fate::gone}});
        wait_for_packet(socket);
    });
    lanes->open();
    lanes->open();
    wait_for(2);
    said.clear();
    lanes->give(2, RemoveFiles{{{"greedy"}}, {}});
    wait_for(1);
    lanes->give(1, RemoveFiles{{{"modest"}}, {}});
    wait_for(2);
    EXPECT_EQ(said, (Texts{"2 is lost: the copying process ended", "1 says 6"}));
}

TEST_F(WorkerLanesTest, LaneThatCannotConnectSaysSoAndIsLost) {
    const SilentServer server(false);
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
