// The route table, and the functions that walk it.
#include "cgi/routes.h"

#include <json-c/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "backup/recording_backup_function.h"
#include "platform/recorder_log.h"

char* uri_token[16];

namespace {

/// What a route hands to its operation.
struct Call {
    json_object** reply;
    const char* body;
    tagINPUT* input;
};

enum class Method { get, put, post, del };

// In place of a segment's text: no segment may stand here; anything or nothing may.
constexpr std::string_view NONE = "/none";
constexpr std::string_view ANY = "/any";

/// One route. Segments behind the ones listed are not looked at.
struct Route {
    Method method;
    std::string_view segments[4];
    int (*operation)(const Call&);
};

// clang-format off
constexpr Route routes[] = {
    {Method::get, {"fuse"},
     [](const Call& call) { return check_fuse(call.reply); }},
    {Method::get, {"task", NONE},
     [](const Call& call) { return get_backup_task_list(call.reply); }},
    {Method::get, {"task", "status"},
     [](const Call& call) { return get_task_status(call.reply, uri_token[2]); }},
    {Method::put, {"task", NONE},
     [](const Call& call) { return create_backup_task(call.reply, call.body); }},
    {Method::post, {"task", ANY, NONE},
     [](const Call& call) { return modify_backup_task(call.reply, call.body, uri_token[1]); }},
};
// clang-format on

bool segment_fits(std::string_view wanted, const char* segment) {
    if (wanted.empty() || wanted == ANY) return true;
    if (wanted == NONE) return segment == nullptr;
    return segment != nullptr && wanted == segment;
}

bool fits(const Route& route, Method method) {
    if (route.method != method) return false;
    for (std::size_t i = 0; i < std::size(route.segments); ++i)
        if (!segment_fits(route.segments[i], uri_token[i])) return false;
    return true;
}

/// The route of the request, null when there is none.
const Route* find_route(Method method) {
    for (const Route& route : routes)
        if (fits(route, method)) return &route;
    return nullptr;
}

int call_route(Method method, const Call& call) {
    const Route* route = find_route(method);
    return route == nullptr ? 0 : route->operation(call);
}

/// A segment as the debug file shows it.
const char* shown(const char* segment) {
    return segment == nullptr ? "(null)" : segment;
}

}  // namespace

int vector_token_to_char(std::vector<std::string>* tokens) {
    if (tokens->size() >= std::size(uri_token)) return -1;
    for (std::size_t i = 0; i < std::size(uri_token); ++i) {
        std::free(uri_token[i]);
        uri_token[i] = i < tokens->size() ? strdup((*tokens)[i].c_str()) : nullptr;
    }
    return 0;
}

void http_header_output(const char* statusLine) {
    std::fputs(statusLine, stdout);
    std::fputs("Content-type: application/json\r\n\r\n", stdout);
}

void print_reply(json_object* reply) {
    std::fputs(json_object_to_json_string(reply), stdout);
    std::fputs("\n\n", stdout);
}

int get_method_fun(std::vector<std::string>*, json_object** reply, tagINPUT* input) {
    const Route* route = find_route(Method::get);
    int result = 0;
    if (route != nullptr) {
        http_header_output("Status: 200 OK\r\n");
        result = route->operation({reply, nullptr, input});
    }
    print_reply(*reply);
    return result;
}

int put_method_fun(std::vector<std::string>*, json_object** reply, char* body, tagINPUT* input) {
    DEBUG_LINE("put_method_fun:[0]:%s, [1]:%s, [2]:%s\n", shown(uri_token[0]), shown(uri_token[1]),
               shown(uri_token[2]));
    return call_route(Method::put, {reply, body, input});
}

int post_method_fun(std::vector<std::string>*, json_object** reply, char* body, int,
                    tagINPUT* input) {
    return call_route(Method::post, {reply, body, input});
}

int delete_method_fun(std::vector<std::string>*, json_object** reply, char* body, tagINPUT* input) {
    return call_route(Method::del, {reply, body, input});
}
