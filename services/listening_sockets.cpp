// A service's listening sockets: those that systemd made ahead of it, otherwise its own.
#include "services/listening_sockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "platform/service_addresses.h"

namespace services {
namespace {

using standalone::FileHandle;

constexpr int FIRST_PASSED = 3;

// While everybody is turned away.
constexpr std::chrono::milliseconds TURN_AWAY_EVERY(20);

/// The number that a variable of the environment holds; 0 when it holds none. Removes it.
int number_from_environment(const char* name) {
    const char* value = std::getenv(name);
    int number = 0;
    if (value) {
        const std::string_view text(value);
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc() || stop != text.data() + text.size()) number = 0;
    }
    unsetenv(name);
    return number;
}

sockaddr_in loopback_address(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, LOOPBACK, &address.sin_addr);
    return address;
}

int option(const FileHandle& socket, int name) {
    int value = 0;
    socklen_t size = sizeof value;
    return getsockopt(socket.get(), SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

bool listens_on(const FileHandle& socket, int port) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    const sockaddr_in wanted = loopback_address(port);
    return getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
           size == sizeof address && address.sin_family == AF_INET &&
           address.sin_addr.s_addr == wanted.sin_addr.s_addr &&
           address.sin_port == wanted.sin_port && option(socket, SO_TYPE) == SOCK_STREAM &&
           option(socket, SO_ACCEPTCONN) == 1;
}

void do_not_block(const FileHandle& socket) {
    fcntl(socket.get(), F_SETFL, fcntl(socket.get(), F_GETFL) | O_NONBLOCK);
}

/// But not for ever, where others come faster than they are closed.
void close_all_who_wait(const FileHandle& socket) {
    for (int closed = 0; closed < SOMAXCONN; ++closed)
        if (!FileHandle(accept(socket.get(), nullptr, nullptr))) return;
}

FileHandle new_socket(int port) {
    FileHandle made(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    const sockaddr_in address = loopback_address(port);
    // The next start must not wait for this one's last connections; and as many may wait to be
    // looked at as the kernel lets.
    if (setsockopt(made.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(made.get(), SOMAXCONN) != 0)
        throw std::runtime_error("cannot listen on " + std::string(LOOPBACK) + " port " +
                                 std::to_string(port) + ": " + std::strerror(errno));
    return made;
}

}  // namespace

ListeningSockets::ListeningSockets() {
    const int process = number_from_environment("LISTEN_PID");
    const int count = number_from_environment("LISTEN_FDS");
    unsetenv("LISTEN_FDNAMES");
    if (process != getpid()) return;
    for (int at = 0; at < count; ++at) {
        const int descriptor = FIRST_PASSED + at;
        if (fcntl(descriptor, F_SETFD, FD_CLOEXEC) != 0) break;
        passed_.emplace_back(descriptor);
    }
}

FileHandle ListeningSockets::take(int port) {
    const auto found = std::find_if(passed_.begin(), passed_.end(),
                                    [port](const auto& it) { return listens_on(it, port); });
    if (found == passed_.end()) return new_socket(port);
    FileHandle socket = std::move(*found);
    passed_.erase(found);
    do_not_block(socket);
    return socket;
}

void ListeningSockets::close_the_rest() {
    for (const FileHandle& other : passed_)
        std::fprintf(stderr,
                     "descriptor %d was passed and is no listening socket of this service\n",
                     other.get());
    passed_.clear();
}

void ListeningSockets::turn_away(std::chrono::milliseconds time) {
    if (passed_.empty()) return;
    const auto end = std::chrono::steady_clock::now() + time;
    std::for_each(passed_.begin(), passed_.end(), do_not_block);
    while (std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(TURN_AWAY_EVERY);
        std::for_each(passed_.begin(), passed_.end(), close_all_who_wait);
    }
}

}  // namespace services
