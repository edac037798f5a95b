// Tells systemd how a service is: that it is ready, that its loop turns, that it ends.
#include "services/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>

#include "platform/standalone/store/file_handle.h"

namespace services {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

/// The text of a variable of the environment; "" when it has none. Removes it.
std::string take(const char* name) {
    const char* value = std::getenv(name);
    std::string text = value ? value : "";
    unsetenv(name);
    return text;
}

long long number_in(const std::string& text) {
    long long number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number > 0 ? number : 0;
}

}  // namespace

ServiceManager::ServiceManager() : socket_(take("NOTIFY_SOCKET")) {
    const long long patience = number_in(take("WATCHDOG_USEC"));
    const std::string process = take("WATCHDOG_PID");
    if (process.empty() || number_in(process) == getpid()) patience_ = microseconds(patience);
}

void ServiceManager::tell(std::string_view words, int send_flags) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socket_.empty() || socket_.size() > sizeof address.sun_path) return;
    socket_.copy(address.sun_path, socket_.size());
    if (socket_[0] == '@') address.sun_path[0] = '\0';
    const standalone::FileHandle sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
    sendto(sender.get(), words.data(), words.size(), MSG_NOSIGNAL | send_flags,
           reinterpret_cast<const sockaddr*>(&address), size);
}

/// A manager that is too busy to listen must not hold the loop up.
std::unique_ptr<EventWatch> ServiceManager::watch(event_base* loop) const {
    if (socket_.empty() || patience_ == microseconds()) return nullptr;
    const auto pause = std::chrono::duration_cast<milliseconds>(patience_ / 2);
    return EventWatch::every(loop, pause, [this] { tell("WATCHDOG=1", MSG_DONTWAIT); });
}

}  // namespace services
