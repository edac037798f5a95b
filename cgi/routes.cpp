// The route table, and the functions that walk it.
#include "cgi/routes.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include "backup/recording_backup_function.h"
#include "platform/cgi_input.h"
#include "platform/json_ptr.h"
#include "platform/process_rights.h"
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

/// Who prints the headers and the reply: the method's function, or the route itself.
enum class Printing { by_method, by_route };

/// Whose rights the operation needs: those of the recorder's user, or at times root's, for a tool
/// that mounts, lists or links.
enum class Rights { recorder, tools };

/// What answers a request.
struct Answer {
    int (*operation)(const Call&);
    Rights rights = Rights::recorder;
    Printing printing = Printing::by_method;
};

/// One route. Segments behind the ones listed are not looked at.
struct Route {
    Method method;
    std::string_view segments[4];
    Answer answer;
};

/// Answers with a redirect to the prepared file, or with the reply that says why there is none.
int answer_download(const Call& call) {
    std::string fileName;
    const int result = download_backup_task_log(call.reply, &fileName);
    if (fileName.empty()) {
        http_header_output(STATUS_OK);
        print_reply(*call.reply);
        return result;
    }
    // A web server takes either line end (RFC 3875, section 6.2); which stands where is part of the
    // interface.
    std::printf(
        "%sLocation: /cgi-bin/%s\nContent-Type: application/octet-stream\n"
        "Content-Disposition: attachment; filename=%s\r\n\r\n",
        STATUS_OK, "Ostra-RecordingbackLog.csv", fileName.c_str());
    DEBUG_LINE("file name = %s\n", fileName.c_str());
    return 0;
}

/// Without "isStop" a delete says too little to be carried out: answered like an unknown route.
int delete_task(const Call& call) {
    const tagPARAMETER* is_stop = _CGI_Find_Parameter(call.input, "isStop", 0);
    return is_stop == nullptr ? 0 : delete_backup_task(call.reply, uri_token[1], is_stop->value);
}

// clang-format off
constexpr Route ROUTES[] = {
    {Method::get, {"channel"},
     {[](const Call& call) { return get_channel_list(call.reply); }}},
    {Method::get, {"fuse"},
     {[](const Call& call) { return check_fuse(call.reply); }}},
    {Method::get, {"share"},
     {[](const Call& call) { return get_samba_share(call.reply, call.input); }, Rights::tools}},
    {Method::get, {"task", NONE},
     {[](const Call& call) { return get_backup_task_list(call.reply); }}},
    {Method::get, {"task", "status"},
     {[](const Call& call) { return get_task_status(call.reply, uri_token[2]); }}},
    {Method::get, {"task", "log", NONE},
     {[](const Call& call) { return get_backup_task_log(call.reply); }}},
    {Method::get, {"task", "log", "file"}, {answer_download, Rights::tools, Printing::by_route}},
    {Method::put, {"server", "testing"},
     {[](const Call& call) { return test_remote_server(call.reply, call.body); }, Rights::tools}},
    {Method::put, {"task", NONE},
     {[](const Call& call) { return create_backup_task(call.reply, call.body); }}},
    {Method::post, {"task", ANY, NONE},
     {[](const Call& call) { return modify_backup_task(call.reply, call.body, uri_token[1]); }}},
    {Method::post, {"task", ANY, "active", NONE},
     {[](const Call& call) { return active_recording_task(call.reply, call.body, uri_token[1]); }}},
    {Method::post, {"task", ANY, "active", "enforcement"},
     {[](const Call& call) {
         return force_active_recording_task(call.reply, call.body, uri_token[1]);
     }}},
    {Method::post, {"task", ANY, "is_enable"},
     {[](const Call& call) { return change_is_enable(call.reply, call.body, uri_token[1]); }}},
    {Method::del, {"task"}, {delete_task}},
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
    for (const Route& route : ROUTES)
        if (fits(route, method)) return &route;
    return nullptr;
}

bool needs_root(Method method) {
    const Route* route = find_route(method);
    return route != nullptr && route->answer.rights == Rights::tools;
}

int call_route(Method method, const Call& call) {
    const Route* route = find_route(method);
    return route == nullptr ? 0 : route->answer.operation(call);
}

void print_value(json_object* value) {
    std::fputs(json_object_to_json_string(value), stdout);
}

/// Entries that are printed at once.
constexpr std::size_t PIECE = 128;

/// Takes the next entries out of a list.
JsonPtr taken_out(json_object* list, std::size_t begin, std::size_t end) {
    JsonPtr piece(json_object_new_array());
    for (std::size_t at = begin; at < end; ++at) {
        json_object* entry = json_object_array_get_idx(list, at);
        json_object_array_add(piece.get(), json_object_get(entry));
        json_object_array_put_idx(list, at, nullptr);
    }
    return piece;
}

/// A long one piece by piece, of which each is given back when it is printed: the text of the whole
/// would take as much room as the list.
void print_list(json_object* list) {
    const std::size_t size = json_object_array_length(list);
    if (size <= PIECE) return print_value(list);
    for (std::size_t at = 0; at < size; at += PIECE) {
        const JsonPtr piece = taken_out(list, at, std::min(at + PIECE, size));
        std::string_view text = json_object_to_json_string(piece.get());
        text.remove_prefix(1);  // the brackets
        text.remove_suffix(2);
        std::fputs(at == 0 ? "[" : ",", stdout);
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    std::fputs(" ]", stdout);
}

/// As json-c prints an object. The names are ours, and need no escapes.
void print_members(json_object* object) {
    const char* separator = "{ \"";
    json_object_object_foreach(object, name, value) {
        std::fputs(separator, stdout);
        std::fputs(name, stdout);
        std::fputs("\": ", stdout);
        if (json_object_is_type(value, json_type_array))
            print_list(value);
        else
            print_value(value);
        separator = ", \"";
    }
    std::fputs(json_object_object_length(object) == 0 ? "{ }" : " }", stdout);
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

void keep_rights_of_route(std::string_view method) {
    // The other methods have no route with a tool.
    if (method == "GET" && needs_root(Method::get)) return;
    if (method == "PUT" && needs_root(Method::put)) return;
    give_up_root();
}

void http_header_output(const char* statusLine) {
    std::fputs(statusLine, stdout);
    std::fputs("Content-type: application/json\r\n\r\n", stdout);
}

void print_reply(json_object* reply) {
    if (json_object_is_type(reply, json_type_object))
        print_members(reply);
    else
        print_value(reply);
    std::fputs("\n\n", stdout);
}

int get_method_fun(std::vector<std::string>*, json_object** reply, tagINPUT* input) {
    const Call call = {reply, nullptr, input};
    const Route* route = find_route(Method::get);
    if (route != nullptr && route->answer.printing == Printing::by_route)
        return route->answer.operation(call);
    if (route != nullptr) http_header_output(STATUS_OK);
    const int result = route == nullptr ? 0 : route->answer.operation(call);
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
