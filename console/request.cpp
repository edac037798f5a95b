// One request, as the web server hands it over (RFC 3875).
#include "console/request.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

#include "console/refusal.h"
#include "platform/standalone/store/cookie.h"

namespace console {

namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

std::vector<std::string> path_segments() {
    std::vector<std::string> segments;
    std::string path = environment("PATH_INFO");
    cgi_uri_token_paser(path.data(), &segments);
    return segments;
}

/// Reads what nobody wants: a program that ends with input unread has its reply cut off.
void discard_body() {
    char piece[16 * 1024];
    while (std::fread(piece, 1, sizeof piece, stdin) > 0) continue;
}

}  // namespace

std::string Request::parameter(const char* name) const {
    const tagPARAMETER* found = _CGI_Find_Parameter(query.get(), name);
    return found == nullptr ? std::string() : found->value;
}

long long Request::number(const char* name, long long otherwise) const {
    if (_CGI_Find_Parameter(query.get(), name) == nullptr) return otherwise;
    const std::string text = parameter(name);
    long long number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0)
        throw bad_field(name, "This has to be a whole number of at least 0.");
    return number;
}

Request read_request() {
    Request request{.method = environment("REQUEST_METHOD"),
                    .segments = path_segments(),
                    .sid = standalone::find_cookie(environment("HTTP_COOKIE"), "sid").value_or(""),
                    .address = environment("HTTP_X_FORWARDED_FOR"),
                    .tag = environment("HTTP_IF_NONE_MATCH"),
                    .behind_tls = environment("SCHEME") == "https" || environment("HTTPS") == "on",
                    .query = InputPtr(CGI_Get_Input_URL())};
    if (!request.query) {
        discard_body();
        throw Refusal{.status = 400, .code = "bad_query", .text = "The query is too long."};
    }
    return request;
}

std::string read_body() {
    const std::string announced = environment("CONTENT_LENGTH");
    const long length = std::strtol(announced.c_str(), nullptr, 10);
    if (length < 0 || length > MAX_BODY_BYTES) {
        discard_body();
        throw Refusal{.status = 413, .code = "body_too_long", .text = "The body is too long."};
    }
    std::string body(static_cast<std::size_t>(length), '\0');
    if (std::fread(body.data(), 1, body.size(), stdin) != body.size())
        throw Refusal{.status = 400, .code = "bad_body", .text = "The body was cut short."};
    return body;
}

}  // namespace console
