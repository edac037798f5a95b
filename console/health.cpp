// Which of the recorder's services are there.
#include "console/health.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <iterator>
#include <string_view>

#include "platform/daemon_messages.h"
#include "platform/service_addresses.h"

namespace console {

namespace {

// How long a service may take before it counts as one that does not answer.
constexpr long PATIENCE_SECONDS = 1;

constexpr std::string_view GOOD_ANSWER = "HTTP/1.0 200";

std::string running_tasks() {
    return std::string(NOTICE_PATH) + "?act=" + RUNNING_QUERY;
}

/// It reads the newest event for that: one that cannot read the log answers that it cannot.
std::string newest_event() {
    return std::string(LOG_PATH) + "?max_results=1";
}

}  // namespace

Json services_of(const Health& health) {
    Json services = Json::object();
    services.add("backup", health.backup);
    services.add("log", health.log);
    return services;
}

ServiceQuestion::ServiceQuestion(int port, const std::string& target)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval patience{.tv_sec = PATIENCE_SECONDS, .tv_usec = 0};
    for (const int direction : {SO_SNDTIMEO, SO_RCVTIMEO})
        setsockopt(socket_.get(), SOL_SOCKET, direction, &patience, sizeof patience);
    is_asked_ = is_connected(port) && is_sent(target);
}

bool ServiceQuestion::is_connected(int port) const {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<in_port_t>(port));
    inet_pton(AF_INET, LOOPBACK, &address.sin_addr);
    return connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool ServiceQuestion::is_sent(const std::string& target) const {
    const std::string question = "GET " + target + " HTTP/1.0\r\nHost: " + LOOPBACK + "\r\n\r\n";
    return send(socket_.get(), question.data(), question.size(), MSG_NOSIGNAL) ==
           std::ssize(question);
}

bool ServiceQuestion::is_answered() const {
    std::array<char, GOOD_ANSWER.size()> answer{};
    return is_asked_ &&
           recv(socket_.get(), answer.data(), answer.size(), MSG_WAITALL) == std::ssize(answer) &&
           std::string_view(answer.data(), answer.size()) == GOOD_ANSWER;
}

HealthQuestion::HealthQuestion()
    : backup_(NOTICE_PORT, running_tasks()), log_(LOG_PORT, newest_event()) {}

const Health& HealthQuestion::answer() {
    if (!answer_) answer_ = Health{.backup = backup_.is_answered(), .log = log_.is_answered()};
    return *answer_;
}

}  // namespace console
