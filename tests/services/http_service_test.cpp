// The services' HTTP server over real connections: routes, refusals, limits, ends.
#include "services/http_service.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <stdexcept>

#include "platform/standalone/store/file_handle.h"
#include "tests/support/patience.h"

namespace {

using namespace services;
using standalone::FileHandle;

constexpr char TEXT[] = "text/plain";

sockaddr_in address_of(const char* host, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, host, &address.sin_addr);
    return address;
}

FileHandle connected(int port, const char* host = "127.0.0.1") {
    FileHandle client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const timeval patience{std::chrono::seconds(PATIENCE).count(), 0};
    setsockopt(client.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const sockaddr_in address = address_of(host, port);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    return connect(client.get(), generic, sizeof address) == 0 ? std::move(client) : FileHandle();
}

void send_all(const FileHandle& client, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t put = send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (put <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
}

/// Reads until the service hangs up; "(silence)" when it does not.
std::string read_all(const FileHandle& client) {
    std::string all;
    std::array<char, 65536> buffer;
    for (;;) {
        const ssize_t got = recv(client.get(), buffer.data(), buffer.size(), 0);
        if (got == 0 || (got < 0 && errno == ECONNRESET)) return all;
        if (got < 0) return "(silence)";
        all.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

int free_port() {
    const FileHandle probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = address_of("127.0.0.1", 0);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(probe.get(), generic, size) != 0 || getsockname(probe.get(), generic, &size) != 0)
        throw std::runtime_error("no free port");
    return ntohs(address.sin_port);
}

HttpReply show(const HttpRequest& request) {
    std::string text;
    for (const auto& [name, value] : request.parameters) text += name + "=" + value + "|";
    return {TEXT, text + request.body};
}

void add_routes(HttpService& service, int port) {
    service.route(port, Method::get, "/x", show);
    service.route(port, Method::put, "/x", show);
    service.route(port, Method::remove, "/y", show);
    service.route(port, Method::get, "/refuse",
                  [](const HttpRequest&) -> HttpReply { throw HttpError(409, "Not \"now\"."); });
    service.route(port, Method::get, "/fail",
                  [](const HttpRequest&) -> HttpReply { throw std::runtime_error("broken"); });
    service.route(port, Method::get, "/long", [](const HttpRequest&) {
        return HttpReply{TEXT, std::string(8 << 20, 'x')};
    });
}

/// A service in a process of its own; tells through the pipe that it listens.
[[noreturn]] void serve(int port, int ready) {
    int status = 1;
    try {
        HttpService service("code", {geteuid()});
        add_routes(service, port);
        service.run([ready] {
            if (write(ready, "+", 1) != 1) throw std::runtime_error("nobody waits");
        });
        status = 0;
    } catch (const std::exception& error) {
        fputs(error.what(), stderr);
    }
    _exit(status);
}

class HttpServiceTest : public ::testing::Test {
protected:
    // Somebody else may take the port between the look and the use.
    void SetUp() override {
        for (int tries = 0; tries < 20 && !start(); ++tries) stop(SIGKILL);
        ASSERT_NE(child_, 0);
    }
    ~HttpServiceTest() override {
        if (child_ > 0) stop(SIGKILL);
    }

    /// @return the exit status, or -1 when the signal ended it
    int stop(int number) {
        kill(child_, number);
        int status = 0;
        waitpid(child_, &status, 0);
        child_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    /// The whole reply to a request whose connection is to be closed then.
    std::string ask(const std::string& line, const std::string& headers = "",
                    const std::string& body = "") const {
        return ask_plainly(line, "Host: localhost\r\n" + headers, body);
    }

    /// The same without a host.
    std::string ask_plainly(const std::string& line, const std::string& headers,
                            const std::string& body = "") const {
        const FileHandle client = connected(port_);
        send_all(client, line + " HTTP/1.1\r\nConnection: close\r\n" + headers + "\r\n" + body);
        return read_all(client);
    }

    std::string put(const std::string& body) const {
        return ask("PUT /x", "Content-Length: " + std::to_string(body.size()) + "\r\n", body);
    }

    int port_ = 0;
    pid_t child_ = 0;

private:
    bool start() {
        port_ = free_port();
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
        FileHandle ready(ends[0]);
        FileHandle report(ends[1]);
        child_ = fork();
        if (child_ == 0) serve(port_, report.get());
        report.close();
        char byte = 0;
        return read(ready.get(), &byte, 1) == 1;
    }
};

int status_of(const std::string& reply) {
    return reply.starts_with("HTTP/1.1 ") ? std::stoi(reply.substr(9, 3)) : 0;
}

std::string body_of(const std::string& reply) {
    const auto end = reply.find("\r\n\r\n");
    return end == std::string::npos ? "(none)" : reply.substr(end + 4);
}

bool has_header(const std::string& reply, const std::string& line) {
    const auto at = reply.find("\r\n" + line + "\r\n");
    return at != std::string::npos && at < reply.find("\r\n\r\n");
}

TEST_F(HttpServiceTest, HandsParametersAndBodyToTheHandler) {
    const std::string reply =
        ask("PUT /x?b=2%203&a=%2b&a=second&c=", "Content-Length: 3\r\n", "xyz");
    EXPECT_EQ(status_of(reply), 200);
    EXPECT_EQ(body_of(reply), "a=+|b=2 3|c=|xyz");
    EXPECT_TRUE(has_header(reply, "Content-Type: text/plain")) << reply;
    EXPECT_EQ(body_of(ask("GET /x")), "");
    EXPECT_EQ(body_of(ask("DELETE /y?a=1")), "a=1|");
}

TEST_F(HttpServiceTest, RefusesQueriesOfWhichAHandlerWouldSeeTheBeginning) {
    for (const char* query : {"a=1%00", "a=1%00x", "a%00b=1", "b=2&a=%00", "%00", "a=%2500%00"}) {
        const std::string reply = ask(std::string("GET /x?") + query);
        EXPECT_EQ(status_of(reply), 400) << query;
        EXPECT_EQ(body_of(reply), R"({"code":400,"mesg":"The query part has a zero byte."})");
    }
    EXPECT_EQ(body_of(ask("GET /x?a=%2500")), "a=%00|");
}

TEST_F(HttpServiceTest, HandsTheBodyOnByteForByte) {
    const std::string bytes("a\0\r\n\xff", 5);
    EXPECT_EQ(body_of(put(bytes)), bytes);
}

TEST_F(HttpServiceTest, RefusesPathsWithoutARoute) {
    for (const char* path : {"/", "/X", "/x/", "/xx", "/%78", "//x"}) {
        const std::string reply = ask(std::string("GET ") + path);
        EXPECT_EQ(status_of(reply), 404) << path;
        EXPECT_EQ(body_of(reply), R"({"code":404,"mesg":"There is nothing at this path."})");
        EXPECT_TRUE(has_header(reply, "Content-Type: application/json"));
    }
}

TEST_F(HttpServiceTest, TellsWhatThePathTakesWhenTheMethodIsAnother) {
    for (const char* method : {"POST", "DELETE", "OPTIONS", "TRACE", "PATCH"}) {
        const std::string reply = ask(std::string(method) + " /x");
        EXPECT_EQ(status_of(reply), 405) << method;
        EXPECT_TRUE(has_header(reply, "Allow: GET, PUT")) << reply;
        EXPECT_EQ(body_of(reply), R"({"code":405,"mesg":"This path takes GET, PUT."})") << method;
    }
    EXPECT_TRUE(has_header(ask("GET /y"), "Allow: DELETE"));
    EXPECT_EQ(status_of(ask("HEAD /x")), 405);
}

TEST_F(HttpServiceTest, IsAskedUnderItsOwnNames) {
    const std::string port = std::to_string(port_);
    for (const std::string name : {"127.0.0.1", "localhost", "LocalHost"})
        for (const std::string& host : {name, name + ":" + port}) {
            EXPECT_EQ(status_of(ask_plainly("GET /x", "Host: " + host + "\r\n")), 200) << host;
            EXPECT_EQ(status_of(ask_plainly("GET /x", "hOST:" + host + "\r\n")), 200) << host;
        }
}

TEST_F(HttpServiceTest, RefusesOtherNamesWhateverIsAsked) {
    const std::string port = std::to_string(port_);
    for (const std::string& host :
         {std::string("Host: evil.example"), "Host: evil.example:" + port, std::string("Host:"),
          std::string("Host: 127.0.0.1:1"), std::string("Host: localhost:"), "Host: :" + port,
          std::string("Host: 127.0.0.1.evil.example"), std::string("Host: localhost."),
          std::string("Host: 127.0.0.10"), std::string("Host: 127.1"), std::string("Host: [::1]"),
          std::string("Host: user@localhost"), "Host: localhost:" + port + ":" + port,
          "Host: localhost:0" + port, std::string("Host: localhost\r\n x"), std::string("X: y"),
          std::string("Host: localhost\r\nHost: localhost"),
          std::string("Host: localhost\r\nHost: evil.example"),
          std::string("Host: evil.example\r\nhost: localhost")})
        for (const char* line : {"GET /x", "GET /none", "DELETE /x", "PUT /x", "GET /fail"}) {
            const std::string reply = ask_plainly(line, host + "\r\n");
            EXPECT_EQ(status_of(reply), 403) << host << '\n' << line;
            EXPECT_EQ(
                body_of(reply),
                R"({"code":403,"mesg":"This service is asked as 127.0.0.1 or localhost only."})");
        }
}

TEST_F(HttpServiceTest, PassesAHandlersRefusalOn) {
    const std::string reply = ask("GET /refuse");
    EXPECT_EQ(status_of(reply), 409);
    EXPECT_EQ(body_of(reply), R"({"code":409,"mesg":"Not \"now\"."})");
}

TEST_F(HttpServiceTest, AnswersAHandlersFailureWith500AndGoesOn) {
    const std::string reply = ask("GET /fail");
    EXPECT_EQ(status_of(reply), 500);
    EXPECT_EQ(body_of(reply), R"({"code":500,"mesg":"broken"})");
    EXPECT_EQ(status_of(ask("GET /x")), 200);
}

TEST_F(HttpServiceTest, TakesHeadersOf16KibibytesAtMost) {
    const auto header = [](int size) { return "X: " + std::string(size, 'a') + "\r\n"; };
    EXPECT_EQ(status_of(ask("GET /x", header(15 * 1024))), 200);
    EXPECT_NE(status_of(ask("GET /x", header(17 * 1024))), 200);
    std::string many;
    for (int at = 0; at < 17 * 1024 / 6; ++at) many += "X: abc\r\n";  // line ends do not count
    EXPECT_NE(status_of(ask("GET /x", many)), 200);
    EXPECT_NE(status_of(ask("GET /x?" + std::string(17 * 1024, 'a'))), 200);
}

TEST_F(HttpServiceTest, TakesBodiesOfOneMebibyteAtMost) {
    const std::string longest(1024 * 1024, 'b');
    EXPECT_EQ(body_of(put(longest)).size(), longest.size());
    EXPECT_EQ(status_of(ask("PUT /x", "Content-Length: 1048577\r\n")), 413);
    const std::string chunk = "80000\r\n" + std::string(0x80000, 'b') + "\r\n";
    const std::string chunked = "Transfer-Encoding: chunked\r\n";
    EXPECT_EQ(status_of(ask("PUT /x", chunked, chunk + chunk + "0\r\n\r\n")), 200);
    EXPECT_NE(status_of(ask("PUT /x", chunked, chunk + chunk + "1\r\nb\r\n0\r\n\r\n")), 200);
}

TEST_F(HttpServiceTest, HangsUpOnWhoKeepsSilent) {
    const FileHandle silent = connected(port_);
    const FileHandle halfway = connected(port_);
    send_all(halfway, "PUT /x HTTP/1.1\r\nContent-Length: 5\r\n\r\nab");
    EXPECT_EQ(read_all(silent), "");
    EXPECT_EQ(status_of(read_all(halfway)), 0);
}

TEST_F(HttpServiceTest, IsNotToBeReachedByAnotherAddress) {
    EXPECT_TRUE(connected(port_));
    EXPECT_FALSE(connected(port_, "127.0.0.2"));
}

TEST_F(HttpServiceTest, SurvivesClientsThatLeaveBeforeTheReply) {
    for (int at = 0; at < 5; ++at) {
        const FileHandle client = connected(port_);
        send_all(client, "GET /long HTTP/1.1\r\nHost: localhost\r\n\r\n");
        char first = 0;
        EXPECT_EQ(recv(client.get(), &first, 1, 0), 1);
    }
    kill(child_, SIGPIPE);  // which writing to those that left may send
    EXPECT_EQ(status_of(ask("GET /x")), 200);
}

TEST_F(HttpServiceTest, EndsWellWhenToldTo) {
    ASSERT_EQ(status_of(ask("GET /x")), 200);
    EXPECT_EQ(stop(SIGTERM), 0);
    SetUp();
    ASSERT_EQ(status_of(ask("GET /x")), 200);
    EXPECT_EQ(stop(SIGINT), 0);
}

TEST_F(HttpServiceTest, SaysWhichPortCannotBeHad) {
    HttpService second("code", {geteuid()});
    try {
        second.route(port_, Method::get, "/x", show);
        FAIL() << "two services on one port";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what()), "cannot listen on 127.0.0.1 port " +
                                                 std::to_string(port_) +
                                                 ": Address already in use");
    }
}

TEST(JsonReply, IsPrintedWithoutBlanksAndEscapedSlashes) {
    const JsonPtr object(new_json_text("a/b \xff"));
    const HttpReply reply = json_reply(object);
    EXPECT_EQ(reply.content_type, "application/json");
    EXPECT_EQ(reply.body, "\"a/b \xEF\xBF\xBD\"");
}

TEST(HttpServiceSignals, EndItInAnOrderlyWayFromTheMomentItIsReady) {
    for (const int number : {SIGTERM, SIGINT}) {
        HttpService service("code", {geteuid()});
        int ready = 0;
        service.run([&] {
            ++ready;
            raise(number);
        });
        EXPECT_EQ(ready, 1);
    }
}

}  // namespace
