// What a request is answered with.
#include "console/reply.h"

#include <cstdio>
#include <utility>

#include "platform/standalone/store/strict_json.h"

namespace console {

namespace {

const char* reason_of(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 204:
            return "No Content";
        case 304:
            return "Not Modified";
        case 400:
            return "Bad Request";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 413:
            return "Content Too Large";
        case 422:
            return "Unprocessable Content";
        case 429:
            return "Too Many Requests";
        case 502:
            return "Bad Gateway";
        case 503:
            return "Service Unavailable";
        default:
            return "Internal Server Error";
    }
}

}  // namespace

Reply json_reply(const Json& object, std::vector<std::string> headers) {
    return {.headers = std::move(headers), .body = object.text()};
}

Reply refusal_reply(const Refusal& refusal) {
    Json error = Json::object();
    error.add("code", refusal.code);
    error.add("text", refusal.text);
    if (!refusal.field.empty()) error.add("field", refusal.field);
    if (refusal.retry_after) error.add("retry_after", *refusal.retry_after);
    Json object = Json::object();
    object.add("error", error);
    Reply reply = json_reply(object);
    reply.status = refusal.status;
    if (refusal.retry_after)
        reply.headers.push_back("Retry-After: " + std::to_string(*refusal.retry_after));
    return reply;
}

void print(const Reply& reply) {
    std::printf("Status: %d %s\r\n", reply.status, reason_of(reply.status));
    for (const std::string& header : reply.headers) std::printf("%s\r\n", header.c_str());
    if (!reply.body.empty()) std::printf("Content-Type: %s\r\n", reply.type.c_str());
    std::fputs("\r\n", stdout);
    std::fwrite(reply.body.data(), 1, reply.body.size(), stdout);
    if (reply.print_rest) reply.print_rest();
}

}  // namespace console
