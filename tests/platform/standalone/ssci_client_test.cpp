// The stand-alone loopback client against services that answer by a script.
#include "platform/ssci_client.h"

#include <arpa/inet.h>
#include <event2/event.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>
#include <thread>

#include "platform/standalone/store/file_handle.h"
#include "tests/support/patience.h"

namespace {

using standalone::FileHandle;

/// Whether an exchange may take however long a busy machine takes for it.
bool is_patient = false;

class SsciClient : public ::testing::Test {
protected:
    SsciClient() { is_patient = true; }
    ~SsciClient() override { is_patient = false; }
};

constexpr std::size_t LONGEST = 64 * 1024 * 1024;

/// When a silent service hangs up: long after a client's longest time-out, five seconds, and before
/// libevent's own, fifty, which would be told in the same way.
constexpr int HANGS_UP_MS = 40'000;

std::string text_of(std::size_t size) {
    return std::string(size, 'r');
}

std::string reply(const std::string& body, const char* status = "200 OK") {
    return std::string("HTTP/1.1 ") + status +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

void send_all(int peer, const std::string& bytes) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t put = send(peer, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (put <= 0) return;
        sent += static_cast<std::size_t>(put);
    }
}

/// Reads until the client has sent its headers and the body they announce.
std::string read_request(int peer) {
    std::string request;
    char buffer[4096];
    std::size_t wanted = std::string::npos;
    while (wanted == std::string::npos || request.size() < wanted) {
        const ssize_t got = recv(peer, buffer, sizeof buffer, 0);
        if (got <= 0) break;
        request.append(buffer, static_cast<std::size_t>(got));
        const std::size_t end = request.find("\r\n\r\n");
        if (end == std::string::npos) continue;
        const std::size_t length = request.find("Content-Length: ");
        wanted = end + 4 + (length < end ? std::stoul(request.substr(length + 16)) : 0);
    }
    return request;
}

/// A port of 127.0.0.1 that nobody else gets while it lives; nobody listens on it yet.
class OwnPort {
public:
    OwnPort() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(socket_.get(), generic, size) != 0 ||
            getsockname(socket_.get(), generic, &size) != 0)
            throw std::runtime_error("no port of our own");
        number_ = ntohs(address.sin_port);
    }

    int socket() const { return socket_.get(); }
    int number() const { return number_; }

private:
    FileHandle socket_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    int number_ = 0;
};

/// Accepts one connection on a port of its own and plays a script on it.
class Service {
public:
    explicit Service(std::function<void(int)> script) : script_(std::move(script)) {
        if (listen(port_.socket(), 1) != 0) throw std::runtime_error("nothing to listen on");
        thread_ = std::thread([this] { play(); });
    }
    ~Service() {
        shutdown(port_.socket(), SHUT_RDWR);
        thread_.join();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    int port() const { return port_.number(); }

private:
    void play() {
        const FileHandle peer(accept(port_.socket(), nullptr, nullptr));
        if (peer) script_(peer.get());
    }

    std::function<void(int)> script_;
    OwnPort port_;
    std::thread thread_;
};

/// Sends `bytes` as soon as the request is there, then closes.
std::function<void(int)> answer(std::string bytes) {
    return [bytes = std::move(bytes)](int peer) {
        read_request(peer);
        send_all(peer, bytes);
    };
}

int get(const Service& service, std::string& response, long timeout = 5) {
    return ssci_GET_request("127.0.0.1", service.port(), "/x", nullptr, response, timeout, false,
                            false, 0, nullptr);
}

int get_failing(const std::string& bytes) {
    const Service service(answer(bytes));
    std::string response = "before";
    const int result = get(service, response);
    EXPECT_EQ(response, "before");
    return result;
}

TEST_F(SsciClient, SendsAPutWithItsBody) {
    std::string request;
    std::string response;
    {
        const Service service([&request](int peer) {
            request = read_request(peer);
            send_all(peer, reply("{}"));
        });
        EXPECT_EQ(ssci_PUT_request("127.0.0.1", service.port(), "/databackupService/notify",
                                   R"({ "a": 1 })", response, 5, false, false, 0, nullptr),
                  0);
        EXPECT_NE(request.find("Host: 127.0.0.1:" + std::to_string(service.port()) + "\r\n"),
                  std::string::npos);
    }
    EXPECT_EQ(response, "{}");
    EXPECT_EQ(request.find("PUT /databackupService/notify HTTP/1.1\r\n"), 0U);
    EXPECT_NE(request.find("Content-Type: application/json\r\n"), std::string::npos);
    EXPECT_NE(request.find("Connection: close\r\n"), std::string::npos);
    EXPECT_TRUE(request.ends_with("\r\n\r\n{ \"a\": 1 }"));
}

TEST_F(SsciClient, EncodesQueryParameters) {
    std::string request;
    std::string response;
    query_object query;
    query["act"] = "a b&c=d/é+%";
    query["sub_type"] = "8981,8983";
    query["z ="] = "";
    {
        const Service service([&request](int peer) {
            request = read_request(peer);
            send_all(peer, reply(""));
        });
        EXPECT_EQ(ssci_DELETE_request("127.0.0.1", service.port(), "/cfg", &query, response, 5,
                                      false, false, 0, nullptr),
                  0);
    }
    EXPECT_EQ(
        request.find(
            "DELETE /cfg?act=a%20b%26c%3Dd%2F%C3%A9%2B%25&sub_type=8981%2C8983&z%20%3D= HTTP"),
        0U)
        << request;
}

TEST_F(SsciClient, GivesTheReplyByteForByte) {
    const std::string body("a\0b\r\n\xff", 6);
    const Service service(answer(reply(body)));
    std::string response = "before";
    EXPECT_EQ(get(service, response), 0);
    EXPECT_EQ(response, body);
}

TEST_F(SsciClient, ReadsChunkedRepliesAndRepliesThatEndWithTheConnection) {
    std::string response;
    const Service chunked(
        answer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
               "3\r\nabc\r\n2\r\nde\r\n0\r\n\r\n"));
    EXPECT_EQ(get(chunked, response), 0);
    EXPECT_EQ(response, "abcde");
    const Service closing(answer("HTTP/1.0 201 Created\r\n\r\nuntil the end"));
    EXPECT_EQ(get(closing, response), 0);
    EXPECT_EQ(response, "until the end");
}

TEST_F(SsciClient, PassesTheServicesOwnStatusOn) {
    EXPECT_EQ(get_failing(reply("{}", "404 Not Found")), 404);
    EXPECT_EQ(get_failing(reply("{}", "500 Internal Server Error")), 500);
    EXPECT_EQ(get_failing(reply("", "301 Moved Permanently")), 301);
    EXPECT_EQ(get_failing(reply("", "300 Choose")), 300);
    EXPECT_EQ(get_failing(reply("", "599 Last")), 599);
    EXPECT_EQ(get_failing(reply("", "600 Odd")), -1);
    EXPECT_EQ(get_failing(reply("", "999 Odd")), -1);
    std::string response;
    const Service last_good(answer(reply("{}", "299 Fine")));
    EXPECT_EQ(get(last_good, response), 0);
}

TEST_F(SsciClient, AcceptsAReplyWithoutContent) {
    std::string response = "before";
    const Service service(answer("HTTP/1.1 204 No Content\r\n\r\n"));
    EXPECT_EQ(get(service, response), 0);
    EXPECT_EQ(response, "");
}

TEST_F(SsciClient, FailsWhenTheReplyIsCutOff) {
    EXPECT_EQ(get_failing(""), -1);
    EXPECT_EQ(get_failing("HTTP/1.1 200 OK\r\nContent-Le"), -1);
    EXPECT_EQ(get_failing("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345"), -1);
    EXPECT_EQ(get_failing("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"), -1);
}

TEST_F(SsciClient, FailsWhenTheReplyIsNoHttp) {
    EXPECT_EQ(get_failing("nonsense\r\n\r\n"), -1);
    EXPECT_EQ(get_failing("\r\n\r\n"), -1);
    EXPECT_EQ(get_failing(std::string(1000, '\0')), -1);
    EXPECT_EQ(get_failing("HTTP/1.1 abc OK\r\n\r\n"), -1);
}

TEST_F(SsciClient, FailsWhenNobodyListens) {
    const OwnPort port;
    std::string response = "before";
    EXPECT_EQ(ssci_GET_request("127.0.0.1", port.number(), "/", nullptr, response, 5, false, false,
                               0, nullptr),
              -1);
    EXPECT_EQ(response, "before");
}

/// The kernel refuses the broadcast address, as it does one without a route, before anything is
/// waited for.
TEST_F(SsciClient, FailsAtOnceWhereThereIsNoWay) {
    std::string response = "before";
    EXPECT_EQ(ssci_GET_request("255.255.255.255", 10205, "/", nullptr, response, 1, false, false, 0,
                               nullptr),
              -1);
    EXPECT_EQ(response, "before");
}

TEST_F(SsciClient, TakesAddressesAndPortsAlone) {
    const Service service(answer(reply("{}")));
    std::string response = "before";
    for (const char* host : {"localhost", "", "127.0.0.1 "})
        EXPECT_EQ(ssci_GET_request(host, service.port(), "/", nullptr, response, 5, false, false, 0,
                                   nullptr),
                  -1);
    for (const int port : {0, -1, 65536})
        EXPECT_EQ(ssci_GET_request("127.0.0.1", port, "/", nullptr, response, 5, false, false, 0,
                                   nullptr),
                  -1);
    EXPECT_EQ(response, "before");
}

TEST_F(SsciClient, TimesOutWhenTheServiceKeepsSilent) {
    is_patient = false;
    const Service service([](int peer) {
        while (!read_request(peer).empty()) continue;
    });
    std::string response = "before";
    EXPECT_EQ(get(service, response, 1), -2);
    EXPECT_EQ(response, "before");
}

TEST_F(SsciClient, TimesOutWhenTheServiceDrips) {
    is_patient = false;
    // A byte every 50 ms: the client must go away before the service has sent its 1000 bytes.
    bool went_away = false;
    {
        const Service service([&went_away](int peer) {
            read_request(peer);
            send_all(peer, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n");
            for (int at = 0; at < 1000 && !went_away; ++at) {
                usleep(50'000);
                went_away = send(peer, "x", 1, MSG_NOSIGNAL) != 1;
            }
        });
        std::string response = "before";
        EXPECT_EQ(get(service, response, 1), -2);
        EXPECT_EQ(response, "before");
    }
    EXPECT_TRUE(went_away);
}

/// Each byte has the client look at its clock: one that stands still for some milliseconds between
/// two ticks would end the wait before its time.
TEST_F(SsciClient, WaitsForTheWholeTimeOutHoweverOftenBytesCome) {
    is_patient = false;
    const Service service([](int peer) {
        read_request(peer);
        send_all(peer, "HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n");
        for (int at = 0; at < 1'000'000 && send(peer, "x", 1, MSG_NOSIGNAL) == 1; ++at) usleep(100);
    });
    std::string response;
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(get(service, response, 1), -2);
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::seconds(1));
}

TEST_F(SsciClient, CountsTimeoutsOutOfBoundsAsFiveSeconds) {
    is_patient = false;
    for (const long timeout : {0L, -1L}) {
        const Service service([](int peer) {
            read_request(peer);
            usleep(300'000);
            send_all(peer, reply("late"));
        });
        std::string response;
        EXPECT_EQ(get(service, response, timeout), 0) << timeout;
        EXPECT_EQ(response, "late") << timeout;
    }
    // Who waited for as long as it was asked to would see the service hang up, another result.
    const Service silent([](int peer) {
        read_request(peer);
        pollfd gone{peer, POLLIN, 0};
        poll(&gone, 1, HANGS_UP_MS);
    });
    std::string response = "before";
    EXPECT_EQ(get(silent, response, 3600), -2);
}

TEST_F(SsciClient, TakesRepliesOf64Mebibytes) {
    std::string response;
    const Service fitting(answer(reply(text_of(LONGEST))));
    EXPECT_EQ(get(fitting, response), 0);
    EXPECT_EQ(response.size(), LONGEST);
}

TEST_F(SsciClient, TakesNoLongerReplies) {
    EXPECT_EQ(get_failing("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(LONGEST + 1) +
                          "\r\n\r\n"),
              -3);
    EXPECT_EQ(get_failing("HTTP/1.0 200 OK\r\n\r\n" + text_of(LONGEST + 1)), -3);
}

TEST_F(SsciClient, TakesHeadersOf64KibibytesAtMost) {
    const auto with_header = [](std::size_t size) {
        return "HTTP/1.1 200 OK\r\nX: " + text_of(size) + "\r\nContent-Length: 0\r\n\r\n";
    };
    std::string response;
    const Service fitting(answer(with_header(60 * 1024)));
    EXPECT_EQ(get(fitting, response), 0);
    EXPECT_NE(get_failing(with_header(70 * 1024)), 0);
}

TEST_F(SsciClient, FailsWhenTheServiceHangsUpWhileItSends) {
    const Service service([](int peer) {
        const linger reset{1, 0};
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    });
    std::string response;
    EXPECT_EQ(ssci_PUT_request("127.0.0.1", service.port(), "/x", text_of(8 * 1024 * 1024),
                               response, 5, false, false, 0, nullptr),
              -1);
}

TEST_F(SsciClient, IgnoresBrokenPipesForAsLongAsItTalks) {
    const auto before = signal(SIGPIPE, SIG_DFL);
    const Service service([](int peer) {
        read_request(peer);
        kill(getpid(), SIGPIPE);
        send_all(peer, reply("{}"));
    });
    std::string response;
    EXPECT_EQ(get(service, response), 0);
    EXPECT_EQ(signal(SIGPIPE, before), SIG_DFL);
}

}  // namespace

// Put in the place of event_add() by the linker (--wrap): by it an exchange has its time-out.
extern "C" {
int __real_event_add(event* added, const timeval* wait);

int __wrap_event_add(event* added, const timeval* wait) {
    const timeval patience{std::chrono::seconds(PATIENCE).count(), 0};
    return __real_event_add(added, is_patient && wait != nullptr ? &patience : wait);
}
}
