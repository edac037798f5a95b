// Routes HTTP requests from libevent's server to handlers, and turns their refusals into JSON
// replies.
#include "services/http_service.h"

#include <event2/buffer.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/keyvalq_struct.h>
#include <json-c/json.h>
#include <strings.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/service_addresses.h"
#include "services/event_watch.h"
#include "services/listening_sockets.h"
#include "services/service_manager.h"

namespace services {
namespace {

constexpr int FORBIDDEN = 403;
constexpr char ENCODED_ZERO[] = "%00";

struct FreeBase {
    void operator()(event_base* base) const { event_base_free(base); }
};
struct FreeServer {
    void operator()(evhttp* server) const { evhttp_free(server); }
};

struct Route {
    Method method;
    std::string path;
    HttpService::Handler handler;
};

struct Port {
    int number = 0;
    const std::string* code_member = nullptr;
    const Doorkeeper* doorkeeper = nullptr;
    std::vector<Route> routes;
    std::unique_ptr<evhttp, FreeServer> server;
};

struct MethodForm {
    evhttp_cmd_type command;
    const char* name;
};

constexpr MethodForm METHODS[] = {
    {EVHTTP_REQ_GET, "GET"}, {EVHTTP_REQ_PUT, "PUT"}, {EVHTTP_REQ_DELETE, "DELETE"}};

const MethodForm& form_of(Method method) {
    return METHODS[static_cast<std::size_t>(method)];
}

std::map<std::string, std::string> parameters_of(const evhttp_uri* uri) {
    std::map<std::string, std::string> parameters;
    const char* query = evhttp_uri_get_query(uri);
    if (!query || !*query) return parameters;
    // Texts end at a zero here, so what stands behind one would be passed over.
    if (std::strstr(query, ENCODED_ZERO))
        throw HttpError(HTTP_BADREQUEST, "The query part has a zero byte.");
    evkeyvalq pairs;
    if (evhttp_parse_query_str(query, &pairs) != 0)
        throw HttpError(HTTP_BADREQUEST, "The query part cannot be read.");
    for (const evkeyval* pair = pairs.tqh_first; pair; pair = pair->next.tqe_next)
        parameters.emplace(pair->key, pair->value);
    evhttp_clear_headers(&pairs);
    return parameters;
}

std::string body_of(evhttp_request* request) {
    evbuffer* input = evhttp_request_get_input_buffer(request);
    std::string body(evbuffer_get_length(input), '\0');
    evbuffer_copyout(input, body.data(), body.size());
    return body;
}

void send(evhttp_request* request, int status, const HttpReply& reply) {
    evkeyvalq* headers = evhttp_request_get_output_headers(request);
    evhttp_add_header(headers, "Content-Type", reply.content_type.c_str());
    evbuffer* output = evhttp_request_get_output_buffer(request);
    evbuffer_add(output, reply.body.data(), reply.body.size());
    evhttp_send_reply(request, status, nullptr, nullptr);
}

void send_error(evhttp_request* request, const Port& port, int status, const char* message) {
    const JsonPtr error(json_object_new_object());
    json_object_object_add(error.get(), port.code_member->c_str(), json_object_new_int(status));
    json_object_object_add(error.get(), "mesg", new_json_text(message));
    send(request, status, json_reply(error));
}

/// The handler of a request; refuses what no route takes.
const HttpService::Handler& find_handler(evhttp_request* request, const Port& port,
                                         const char* path) {
    std::string allowed;
    for (const Route& route : port.routes) {
        if (!path || route.path != path) continue;
        const MethodForm& form = form_of(route.method);
        if (form.command == evhttp_request_get_command(request)) return route.handler;
        allowed += (allowed.empty() ? "" : ", ") + std::string(form.name);
    }
    if (allowed.empty()) throw HttpError(HTTP_NOTFOUND, "There is nothing at this path.");
    evhttp_add_header(evhttp_request_get_output_headers(request), "Allow", allowed.c_str());
    throw HttpError(HTTP_BADMETHOD, "This path takes " + allowed + ".");
}

bool is_this_service(std::string_view host, int port) {
    const std::string ending = ':' + std::to_string(port);
    if (host.ends_with(ending)) host.remove_suffix(ending.size());
    return host == LOOPBACK || strcasecmp(std::string(host).c_str(), "localhost") == 0;
}

std::vector<std::string> hosts_of(evhttp_request* request) {
    std::vector<std::string> hosts;
    const evkeyvalq* headers = evhttp_request_get_input_headers(request);
    for (const evkeyval* header = headers->tqh_first; header; header = header->next.tqe_next)
        if (strcasecmp(header->key, "Host") == 0) hosts.emplace_back(header->value);
    return hosts;
}

// A browser lets every web site ask this address once the site's own name has been made to mean it,
// but it says under which name.
void require_own_name(evhttp_request* request, const Port& port) {
    const auto hosts = hosts_of(request);
    if (hosts.size() != 1 || !is_this_service(hosts[0], port.number))
        throw HttpError(FORBIDDEN, "This service is asked as 127.0.0.1 or localhost only.");
}

void require_acquaintance(evhttp_request* request, const Port& port) {
    if (!port.doorkeeper->knows(evhttp_request_get_connection(request)))
        throw HttpError(FORBIDDEN, "This service is not for you.");
}

/// What cannot even be answered with an error ends the service: the library has no other way out.
void answer(evhttp_request* request, void* context) noexcept {
    const Port& port = *static_cast<const Port*>(context);
    try {
        require_acquaintance(request, port);
        require_own_name(request, port);
        const evhttp_uri* uri = evhttp_request_get_evhttp_uri(request);
        const auto& handler = find_handler(request, port, evhttp_uri_get_path(uri));
        send(request, HTTP_OK, handler({parameters_of(uri), body_of(request)}));
    } catch (const HttpError& error) {
        send_error(request, port, error.status, error.what());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "port %d: %s\n", port.number, error.what());
        send_error(request, port, HTTP_INTERNAL, error.what());
    }
}

void bound_requests(evhttp* server) {
    evhttp_set_max_body_size(server, HttpService::MAX_BODY_BYTES);
    evhttp_set_max_headers_size(server, HttpService::MAX_HEADER_BYTES);
    evhttp_set_timeout(server, HttpService::SILENCE_SECONDS);
    // All the methods the library knows, so that a wrong one is told what the path takes.
    evhttp_set_allowed_methods(server, EVHTTP_REQ_GET | EVHTTP_REQ_POST | EVHTTP_REQ_HEAD |
                                           EVHTTP_REQ_PUT | EVHTTP_REQ_DELETE | EVHTTP_REQ_OPTIONS |
                                           EVHTTP_REQ_TRACE | EVHTTP_REQ_PATCH);
}

std::unique_ptr<Port> serve_on(standalone::FileHandle socket, event_base* base,
                               Doorkeeper& doorkeeper, Users also) {
    auto port = std::make_unique<Port>();
    port->doorkeeper = &doorkeeper;
    port->server.reset(evhttp_new(base));
    if (!port->server) throw std::bad_alloc();
    bound_requests(port->server.get());
    evhttp_set_gencb(port->server.get(), answer, port.get());
    evhttp_bound_socket* bound = evhttp_accept_socket_with_handle(port->server.get(), socket.get());
    if (!bound) throw std::bad_alloc();
    socket.release();
    doorkeeper.guard(port->server.get(), evhttp_bound_socket_get_listener(bound), std::move(also));
    return port;
}

}  // namespace

struct HttpService::Loop {
    std::string code_member;
    ListeningSockets sockets;
    ServiceManager manager;
    std::unique_ptr<event_base, FreeBase> base;
    std::unique_ptr<Doorkeeper> doorkeeper;
    std::vector<std::unique_ptr<Port>> ports;

    Port& open(int number, Users also) {
        auto port = serve_on(sockets.take(number), base.get(), *doorkeeper, std::move(also));
        port->number = number;
        port->code_member = &code_member;
        return *ports.emplace_back(std::move(port));
    }
};

HttpReply json_reply(const JsonPtr& object) {
    return {"application/json", standalone::print_json(object.get())};
}

HttpService::HttpService(std::string code_member, Users trusted) : loop_(std::make_unique<Loop>()) {
    // A client that leaves early must not end the service.
    std::signal(SIGPIPE, SIG_IGN);
    loop_->code_member = std::move(code_member);
    loop_->base.reset(event_base_new());
    if (!loop_->base) throw std::runtime_error("cannot make an event loop");
    loop_->doorkeeper = std::make_unique<Doorkeeper>(loop(), std::move(trusted));
}

HttpService::~HttpService() = default;

void HttpService::open(int port, Users also) {
    loop_->open(port, std::move(also));
}

void HttpService::route(int port, Method method, const std::string& path, Handler handler) {
    const auto& ports = loop_->ports;
    const auto place = std::find_if(ports.begin(), ports.end(),
                                    [port](const auto& known) { return known->number == port; });
    Port& opened = place == ports.end() ? loop_->open(port, {}) : **place;
    opened.routes.push_back({method, path, std::move(handler)});
}

void HttpService::run(const std::function<void()>& ready) {
    loop_->sockets.close_the_rest();
    const ServiceManager& manager = loop_->manager;
    const auto stop = [&] {
        manager.tell_end();
        event_base_loopexit(loop(), nullptr);
    };
    const auto terminate = EventWatch::signal(loop(), SIGTERM, stop);
    const auto interrupt = EventWatch::signal(loop(), SIGINT, stop);
    ready();
    manager.tell_ready();
    const auto watchdog = manager.watch(loop());
    event_base_dispatch(loop());
}

event_base* HttpService::loop() {
    return loop_->base.get();
}

}  // namespace services
