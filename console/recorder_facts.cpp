// What the recorder is, and which of its services are there.
#include "console/recorder_facts.h"

#include <arpa/inet.h>
#include <limits.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "console/json.h"
#include "platform/service_addresses.h"
#include "platform/standalone/store/calendar.h"
#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/status_reading.h"
#include "platform/version.h"

namespace console {

namespace {

std::string host_name() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

// How long a service may take before it counts as one that does not answer.
constexpr long PATIENCE_SECONDS = 1;

// It reads the newest event for that: one that cannot read the log answers that it cannot.
constexpr std::string_view QUESTION_BEGINNING = "GET ";
constexpr std::string_view QUESTION_END = "?max_results=1 HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n";
constexpr std::string_view GOOD_ANSWER = "HTTP/1.0 200";

/// A question to the log service that is under way: it is answered while the other service is
/// asked. Behind systemd's socket a service that never starts is one that never answers. The
/// platform's client would cost a poll of the page a fifth of its time.
class LogQuestion {
public:
    LogQuestion() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const timeval patience{.tv_sec = PATIENCE_SECONDS, .tv_usec = 0};
        for (const int direction : {SO_SNDTIMEO, SO_RCVTIMEO})
            setsockopt(socket_.get(), SOL_SOCKET, direction, &patience, sizeof patience);
        is_asked_ = is_connected() && is_sent();
    }

    bool is_answered() const {
        std::array<char, GOOD_ANSWER.size()> answer{};
        return is_asked_ &&
               recv(socket_.get(), answer.data(), answer.size(), MSG_WAITALL) ==
                   std::ssize(answer) &&
               std::string_view(answer.data(), answer.size()) == GOOD_ANSWER;
    }

private:
    bool is_connected() const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(LOG_PORT);
        inet_pton(AF_INET, LOOPBACK, &address.sin_addr);
        return connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address),
                       sizeof address) == 0;
    }

    bool is_sent() const {
        std::string question(QUESTION_BEGINNING);
        question.append(LOG_PATH).append(QUESTION_END);
        return send(socket_.get(), question.data(), question.size(), MSG_NOSIGNAL) ==
               std::ssize(question);
    }

    standalone::FileHandle socket_;
    bool is_asked_ = false;
};

}  // namespace

std::string zone_name() {
    if (const char* zone = std::getenv("TZ"); zone != nullptr && *zone != '\0')
        return *zone == ':' ? zone + 1 : zone;
    std::array<char, PATH_MAX> link{};
    if (readlink("/etc/localtime", link.data(), link.size() - 1) <= 0) return "";
    constexpr std::string_view FOLDER = "zoneinfo/";
    const std::string_view path = link.data();
    const std::size_t found = path.find(FOLDER);
    return found == std::string_view::npos ? "" : std::string(path.substr(found + FOLDER.size()));
}

Json recorder_facts(long long time) {
    Json facts = Json::object();
    facts.add("name", host_name());
    facts.add("version", RECORDER_VERSION);
    facts.add("zone", zone_name());
    facts.add("utc_offset", standalone::machine_zone(time));
    return facts;
}

Health service_health() {
    const LogQuestion log;
    Health health{.backup = standalone::backup_daemon_answers(PATIENCE_SECONDS)};
    health.log = log.is_answered();
    return health;
}

Json services_of(const Health& health) {
    Json services = Json::object();
    services.add("backup", health.backup);
    services.add("log", health.log);
    return services;
}

}  // namespace console
