// A small HTTP server for the services on loopback: routes, bounded requests, JSON error replies.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/json_ptr.h"
#include "platform/standalone/store/strict_json.h"
#include "services/doorkeeper.h"

struct event_base;   // libevent
struct json_object;  // json-c

namespace services {

/// What a handler gets to see of a request.
struct HttpRequest {
    std::map<std::string, std::string> parameters;  ///< query part, percent-decoded, whole; of
                                                    ///< several with one name the first
    std::string body;                               ///< as received, at most MAX_BODY_BYTES
};

/// What a handler answers.
struct HttpReply {
    std::string content_type;
    std::string body;
};

/// Thrown by a handler to refuse a request; what() is one sentence for whoever sent it.
class HttpError : public std::runtime_error {
public:
    HttpError(int http_status, const std::string& message)
        : std::runtime_error(message), status(http_status) {}
    int status;  ///< 400 to 599
};

using standalone::new_json_text;

/// Answers with an object, printed without blanks.
HttpReply json_reply(const JsonPtr& object);

enum class Method { get, put, remove };

/// Serves routes on ports of 127.0.0.1 from one event loop, which also runs the handlers. It
/// answers trusted users alone (see Doorkeeper, also for how many connections there are and for
/// how long). A request with a longer body than MAX_BODY_BYTES or longer headers than
/// MAX_HEADER_BYTES is refused, and a connection that is silent for SILENCE_SECONDS is closed. A
/// request without exactly one "Host" of 127.0.0.1 or localhost, with or without the port, gives
/// 403, a query part with a zero byte 400, a path without a route 404, another method than the
/// path's routes have 405, an exception other than HttpError 500.
class HttpService {
public:
    static constexpr int MAX_BODY_BYTES = 1024 * 1024;
    static constexpr int MAX_HEADER_BYTES = 16 * 1024;
    static constexpr int SILENCE_SECONDS = 5;

    using Handler = std::function<HttpReply(const HttpRequest&)>;

    /// @param code_member member of error replies that holds the HTTP status:
    ///                    {"<code_member>": 404, "mesg": "..."}
    /// @param trusted     who may ask, as a rule trusted_users()
    HttpService(std::string code_member, Users trusted);
    ~HttpService();
    HttpService(const HttpService&) = delete;
    HttpService& operator=(const HttpService&) = delete;

    /// Begins to listen on `port`, and answers these users there besides the trusted ones. Once,
    /// and before the port's first route.
    /// @throws std::runtime_error when the port cannot be had
    void open(int port, Users also);

    /// Adds a route, and begins to listen on `port` when it is the port's first one, on the socket
    /// that systemd made for it where there is one (see ListeningSockets).
    /// @throws std::runtime_error when the port cannot be had
    void route(int port, Method method, const std::string& path, Handler handler);

    /// Serves until SIGTERM or SIGINT comes, and tells systemd about it (service_manager.h). Routes
    /// are not added any more.
    /// @param ready called when these signals end the service in this way, before the first
    ///              request. They end nothing before it returns, so it must not wait for anything
    void run(const std::function<void()>& ready);

    /// The loop that run() runs, for whatever else is to happen in it.
    event_base* loop();

private:
    struct Loop;
    std::unique_ptr<Loop> loop_;
};

}  // namespace services
