// The loopback HTTP client, on libevent: one connection, one request, one deadline for all of it.
#include "platform/ssci_client.h"

#include <arpa/inet.h>
#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <signal.h>

#include <cstdlib>
#include <memory>

namespace {

constexpr int BROKEN = -1;
constexpr int TIMED_OUT = -2;
constexpr int TOO_LONG = -3;
constexpr ev_ssize_t LONGEST_REPLY = 64 * 1024 * 1024;
constexpr ev_ssize_t LONGEST_HEADERS = 64 * 1024;
constexpr long MOST_SECONDS = 5;

template <auto Release>
struct Releaser {
    template <typename Handle>
    void operator()(Handle* handle) const {
        Release(handle);
    }
};
template <typename Handle, auto Release>
using Owned = std::unique_ptr<Handle, Releaser<Release>>;

using EventBase = Owned<event_base, event_base_free>;
using EventConfig = Owned<event_config, event_config_free>;
using Event = Owned<event, event_free>;
using Connection = Owned<evhttp_connection, evhttp_connection_free>;
using EncodedText = Owned<char, std::free>;

struct Request {
    evhttp_cmd_type method;
    std::string target;  ///< path and query
    std::string body;
};

/// For one socket poll(2) takes the fewest system calls. The environment, which may choose another
/// way, is asked four times otherwise, each time after four looks at who runs the program. Without
/// the precise timer libevent takes a clock that stands still for up to ten milliseconds
/// (CLOCK_MONOTONIC_COARSE), and ends a time-out by as much too early.
EventBase new_event_base() {
    const EventConfig config(event_config_new());
    if (config == nullptr) return nullptr;
    event_config_avoid_method(config.get(), "epoll");
    event_config_set_flag(config.get(), EVENT_BASE_FLAG_IGNORE_ENV | EVENT_BASE_FLAG_PRECISE_TIMER);
    return EventBase(event_base_new_with_config(config.get()));
}

/// One for all exchanges of the thread, never taken apart when the program ends by _exit(2).
/// @return null when there is none to be had
event_base* own_event_base() {
    thread_local const EventBase base = new_event_base();
    return base.get();
}

/// What the callbacks leave behind.
struct Outcome {
    event_base* base;
    bool done = false;
    int result = BROKEN;
    std::string body{};
};

/// A service that closes early must not end the process.
class IgnoreBrokenPipe {
public:
    IgnoreBrokenPipe() {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &ignore, &before_);
    }
    ~IgnoreBrokenPipe() { sigaction(SIGPIPE, &before_, nullptr); }
    IgnoreBrokenPipe(const IgnoreBrokenPipe&) = delete;
    IgnoreBrokenPipe& operator=(const IgnoreBrokenPipe&) = delete;

private:
    struct sigaction before_ {};
};

bool is_address(const std::string& host) {
    in6_addr address{};
    return inet_pton(AF_INET, host.c_str(), &address) == 1 ||
           inet_pton(AF_INET6, host.c_str(), &address) == 1;
}

std::string encoded(const std::string& text) {
    const EncodedText result(
        evhttp_uriencode(text.data(), static_cast<ev_ssize_t>(text.size()), 0));
    return result == nullptr ? std::string() : result.get();
}

std::string target(const char* path, const query_object* query) {
    std::string text = path;
    char separator = '?';
    if (query == nullptr) return text;
    for (const auto& [name, value] : query->parameters) {
        text += separator + (encoded(name) + '=' + encoded(value));
        separator = '&';
    }
    return text;
}

void finish(Outcome& outcome, int result) {
    outcome.done = true;
    outcome.result = result;
    event_base_loopbreak(outcome.base);
}

int status_result(int status) {
    if (status >= 200 && status <= 299) return 0;
    return status >= 100 && status <= 599 ? status : BROKEN;
}

void on_reply(evhttp_request* request, void* context) {
    auto& outcome = *static_cast<Outcome*>(context);
    if (outcome.done) return;  // on_error came first
    if (request == nullptr || evhttp_request_get_response_code(request) == 0) {
        finish(outcome, BROKEN);
        return;
    }
    const int result = status_result(evhttp_request_get_response_code(request));
    evbuffer* input = evhttp_request_get_input_buffer(request);
    if (result == 0) {
        outcome.body.resize(evbuffer_get_length(input));
        evbuffer_remove(input, outcome.body.data(), outcome.body.size());
    }
    finish(outcome, result);
}

int error_result(evhttp_request_error error) {
    switch (error) {
        case EVREQ_HTTP_TIMEOUT:
            return TIMED_OUT;
        case EVREQ_HTTP_DATA_TOO_LONG:
            return TOO_LONG;
        default:
            return BROKEN;
    }
}

void on_error(evhttp_request_error error, void* context) {
    auto& outcome = *static_cast<Outcome*>(context);
    if (!outcome.done) finish(outcome, error_result(error));
}

/// The connection owns the request from here on.
bool send(evhttp_connection* connection, const char* host, int port, const Request& request,
          Outcome& outcome) {
    evhttp_request* sent = evhttp_request_new(on_reply, &outcome);
    if (sent == nullptr) return false;
    evhttp_request_set_error_cb(sent, on_error);
    evkeyvalq* headers = evhttp_request_get_output_headers(sent);
    const std::string authority = std::string(host) + ':' + std::to_string(port);
    evhttp_add_header(headers, "Host", authority.c_str());
    evhttp_add_header(headers, "Connection", "close");
    if (request.method == EVHTTP_REQ_PUT) {
        evhttp_add_header(headers, "Content-Type", "application/json");
        evbuffer_add(evhttp_request_get_output_buffer(sent), request.body.data(),
                     request.body.size());
    }
    return evhttp_make_request(connection, sent, request.method, request.target.c_str()) == 0;
}

Connection open_connection(event_base* base, const char* host, int port) {
    Connection connection(
        evhttp_connection_base_new(base, nullptr, host, static_cast<ev_uint16_t>(port)));
    if (connection == nullptr) return connection;
    evhttp_connection_set_max_body_size(connection.get(), LONGEST_REPLY);
    evhttp_connection_set_max_headers_size(connection.get(), LONGEST_HEADERS);
    return connection;
}

void on_deadline(evutil_socket_t, short, void* context) {
    auto& outcome = *static_cast<Outcome*>(context);
    if (!outcome.done) finish(outcome, TIMED_OUT);
}

/// libevent's own time-outs start afresh with every byte; this one does not. What failed without
/// waiting for anything, as without a route there, is over before the loop runs.
int run_until(Outcome& outcome, long seconds) {
    if (outcome.done) return outcome.result;
    const Event deadline(evtimer_new(outcome.base, on_deadline, &outcome));
    const timeval wait{seconds, 0};
    if (deadline == nullptr || evtimer_add(deadline.get(), &wait) != 0) return BROKEN;
    event_base_dispatch(outcome.base);
    return outcome.result;
}

int exchange(const char* host, int port, const Request& request, std::string& response,
             long seconds) {
    if (host == nullptr || !is_address(host) || port < 1 || port > 65535) return BROKEN;
    if (seconds < 1 || seconds > MOST_SECONDS) seconds = MOST_SECONDS;
    const IgnoreBrokenPipe guard;
    event_base* base = own_event_base();
    if (base == nullptr) return BROKEN;
    Outcome outcome{.base = base};
    const Connection connection = open_connection(base, host, port);
    if (connection == nullptr || !send(connection.get(), host, port, request, outcome))
        return BROKEN;
    const int result = run_until(outcome, seconds);
    outcome.done = true;  // freeing the connection calls back once more
    if (result == 0) response = std::move(outcome.body);
    return result;
}

}  // namespace

int ssci_PUT_request(const char* host, int port, const char* path, std::string body,
                     std::string& response, long timeout, bool, bool, int, char**) {
    return exchange(host, port, {EVHTTP_REQ_PUT, path, std::move(body)}, response, timeout);
}

int ssci_GET_request(const char* host, int port, const char* path, query_object* query,
                     std::string& response, long timeout, bool, bool, int, char**) {
    return exchange(host, port, {EVHTTP_REQ_GET, target(path, query), {}}, response, timeout);
}

int ssci_DELETE_request(const char* host, int port, const char* path, query_object* query,
                        std::string& response, long timeout, bool, bool, int, char**) {
    return exchange(host, port, {EVHTTP_REQ_DELETE, target(path, query), {}}, response, timeout);
}
