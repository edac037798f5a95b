// The CGI program's entry: one request in, one reply out, the result code as exit status.
#include <json-c/json.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "cgi/request.h"
#include "cgi/result_code.h"
#include "cgi/routes.h"
#include "platform/cgi_input.h"
#include "platform/json_ptr.h"
#include "platform/process_rights.h"
#include "platform/version.h"
#include "platform/version_question.h"

namespace {

struct FreeInput {
    void operator()(tagINPUT* input) const { CGI_Free_Input(input); }
};

/// The one reply that calls its code "retCode".
int refuse_session() {
    give_up_root();
    discard_body(std::getenv("CONTENT_LENGTH"));
    http_header_output("Status: 401 Unauthorized\r\n");
    const JsonPtr reply(json_object_new_object());
    json_object_object_add(reply.get(), "retCode", json_object_new_double(CGI_AUTH_FAIL));
    json_object_object_add(reply.get(), "mesg", json_object_new_string("SID authorization fail."));
    print_reply(reply.get());
    return CGI_AUTH_FAIL;
}

/// A request that no route can be looked up for: the code as text, no message.
int refuse_request(int result) {
    char code[64];
    std::snprintf(code, sizeof code, "0x%x", static_cast<unsigned>(result));
    http_header_output(STATUS_OK);
    const JsonPtr reply(json_object_new_object());
    json_object_object_add(reply.get(), "ret_code", json_object_new_string(code));
    print_reply(reply.get());
    return result;
}

/// Splits the path into uri_token; false when there is none or it has too many segments.
bool split_path(char* path_info, std::vector<std::string>* tokens) {
    if (path_info == nullptr) return false;
    cgi_uri_token_paser(path_info, tokens);
    return vector_token_to_char(tokens) == 0;
}

/// Answers POST, PUT and DELETE: status first, then the operation, then what it left in the reply
/// slot.
template <class Route>
int answer(json_object** reply, Route route) {
    http_header_output(STATUS_OK);
    const int result = route();
    print_reply(*reply);
    return result;
}

/// What says which route a request takes.
struct Target {
    std::string_view method;
    std::vector<std::string> tokens;
    bool is_split = false;  ///< the segments are in uri_token
};

Target read_target() {
    const char* method = std::getenv("REQUEST_METHOD");
    Target target{.method = method == nullptr ? "" : method, .tokens = {}};
    target.is_split = split_path(std::getenv("PATH_INFO"), &target.tokens);
    return target;
}

int serve(tagINPUT* input, Target& target) {
    std::vector<char> buffer = read_body(std::getenv("CONTENT_LENGTH"));
    char* body = buffer.empty() ? nullptr : buffer.data();
    const int length = buffer.empty() ? 0 : static_cast<int>(buffer.size() - 1);

    if (!target.is_split) return refuse_request(CGI_URI_ERROR);

    const std::string_view method = target.method;
    std::vector<std::string>* tokens = &target.tokens;
    // Never released: taking a long list apart would cost more than the process has left to do.
    static json_object* reply = nullptr;
    if (method == "GET") return get_method_fun(tokens, &reply, input);
    if (method == "POST")
        return answer(&reply, [&] { return post_method_fun(tokens, &reply, body, length, input); });
    if (method == "PUT")
        return answer(&reply, [&] { return put_method_fun(tokens, &reply, body, input); });
    if (method == "DELETE")
        return answer(&reply, [&] { return delete_method_fun(tokens, &reply, body, input); });
    return refuse_request(CGI_METHOD_ERROR);
}

/// The route is found first, so that most requests have no way back to root when their query, their
/// session and their body are read.
int answer_request() {
    Target target = read_target();
    keep_rights_of_route(target.method);
    const std::unique_ptr<tagINPUT, FreeInput> input(CGI_Get_Input_URL());
    return authenticate(input.get()) ? serve(input.get(), target) : refuse_session();
}

}  // namespace

int main(int count, char** arguments) {
    if (asks_for_version(count, arguments)) {
        std::fprintf(stderr, "recording_backup.cgi %s\n", RECORDER_VERSION);
        return 0;
    }
    take_recorder_identity();
    // The zone that counts anyway. Without it the C library asks whether that is still the same one
    // with each time that it converts.
    setenv("TZ", ":/etc/localtime", 0);
    const int result = answer_request();
    // Ends without taking apart tables and connections, which the kernel drops faster.
    std::fflush(stdout);
    _exit(result);
}
