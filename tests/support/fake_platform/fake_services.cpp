// The fake's services: the local HTTP client, programs, mounts, Base64, characters, the clock.
extern "C" {
#include <b64/cdecode.h>
#include <b64/cencode.h>
}

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <memory>
#include <utility>

#include "platform/private_mounts.h"
#include "platform/ssci_client.h"
#include "platform/utilities.h"
#include "tests/support/fake_platform/fake_platform.h"
#include "tests/support/fake_platform/fake_state.h"

namespace {

std::string shown(const query_object* query) {
    if (!query) return "(null)";
    std::string text;
    for (const auto& [name, value] : query->parameters)
        text += (text.empty() ? "" : "&") + name + "=" + value;
    return text;
}

// What each of the three HTTP calls was given.
struct Exchange {
    const char* host;
    int port;
    const char* path;
    std::string content;
    long timeout;
    bool use_tls;
    bool verify_peer;
    int retries;
    char** reply_headers;

    std::vector<std::string> shown() const {
        return {host,
                std::to_string(port),
                path,
                content,
                std::to_string(timeout),
                fake::shown(use_tls),
                fake::shown(verify_peer),
                std::to_string(retries),
                reply_headers ? "headers" : "(null)"};
    }
};

int exchange(const char* name, const Exchange& given, const std::string& otherwise,
             std::string& response) {
    const auto code = fake::called(name, given.shown());
    if (code) return *code;
    response = fake::queued(name).value_or(otherwise);
    return 0;
}

std::string reply_to(const query_object* query) {
    const auto act =
        query ? query->parameters.find("act") : decltype(query->parameters.find("act")){};
    if (!query || act == query->parameters.end()) return "{}";
    const auto reply = fake::platform.query_replies.find(act->second);
    return reply == fake::platform.query_replies.end() ? "{}" : reply->second;
}

bool is_base64(char c) {
    return isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '/';
}

// A new file in the place of whatever lies there.
bool write_output(const char* path, const std::string& content) {
    unlink(path);
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path, "wx"), fclose);
    return file && fwrite(content.data(), 1, content.size(), file.get()) == content.size();
}

}  // namespace

int ssci_PUT_request(const char* host, int port, const char* path, std::string body,
                     std::string& response, long timeout, bool use_tls, bool verify_peer,
                     int retries, char** reply_headers) {
    return exchange(__func__,
                    {host, port, path, body, timeout, use_tls, verify_peer, retries, reply_headers},
                    "{}", response);
}

int ssci_GET_request(const char* host, int port, const char* path, query_object* query,
                     std::string& response, long timeout, bool use_tls, bool verify_peer,
                     int retries, char** reply_headers) {
    return exchange(
        __func__,
        {host, port, path, shown(query), timeout, use_tls, verify_peer, retries, reply_headers},
        reply_to(query), response);
}

int ssci_DELETE_request(const char* host, int port, const char* path, query_object* query,
                        std::string& response, long timeout, bool use_tls, bool verify_peer,
                        int retries, char** reply_headers) {
    return exchange(
        __func__,
        {host, port, path, shown(query), timeout, use_tls, verify_peer, retries, reply_headers},
        "{}", response);
}

int zorv_exec(const char* stdout_path, const char* stderr_path, const char* extra_path,
              const char* program, ...) {
    std::vector<std::string> args = {fake::shown(stdout_path), fake::shown(stderr_path),
                                     fake::shown(extra_path), program};
    va_list arguments;
    va_start(arguments, program);
    while (const char* argument = va_arg(arguments, const char*)) args.emplace_back(argument);
    va_end(arguments);
    const auto code = fake::called(__func__, args);
    const std::string output = fake::queued(__func__).value_or("");
    if (stdout_path && !write_output(stdout_path, output)) return ZORV_EXEC_NO_OUTPUT;
    if (fake::platform.on_program) fake::platform.on_program({__func__, args});
    return code.value_or(0);
}

int enter_private_mounts() {
    return fake::called(__func__, {}).value_or(0);
}

int restrict_mount(const char* mount_point) {
    return fake::called(__func__, {mount_point}).value_or(0);
}

int b64_encode_v2(const unsigned char* data, unsigned length, std::string& out) {
    if (const auto code = fake::called(__func__, {std::to_string(length)})) return *code;
    std::string text(length * 2 + 8, '\0');
    base64_encodestate state;
    base64_init_encodestate(&state);
    int used = base64_encode_block(reinterpret_cast<const char*>(data), static_cast<int>(length),
                                   text.data(), &state);
    used += base64_encode_blockend(text.data() + used, &state);
    text.resize(static_cast<size_t>(used));
    std::erase(text, '\n');  // libb64 breaks lines, the recorder does not
    out = text;
    return 0;
}

int b64_decode_v2(const std::string& in, std::string& out) {
    if (const auto code = fake::called(__func__, {std::to_string(in.size())})) return *code;
    std::string text = in;
    std::erase_if(text, [](char c) { return c == '\n' || c == '\r'; });
    const size_t padded = text.size();
    while (text.ends_with('=') && padded - text.size() < 2) text.pop_back();
    if (text.size() != padded && padded % 4 != 0) return -1;
    if (!std::all_of(text.begin(), text.end(), is_base64) || text.size() % 4 == 1) return -1;
    std::string bytes(text.size() + 4, '\0');
    base64_decodestate state;
    base64_init_decodestate(&state);
    const int used =
        base64_decode_block(text.data(), static_cast<int>(text.size()), bytes.data(), &state);
    out = bytes.substr(0, static_cast<size_t>(used));
    return 0;
}

int check_black_chrset(const char* text, const char* blackset) {
    if (const auto code = fake::called(__func__, {text, blackset})) return *code;
    return strpbrk(text, blackset) != nullptr;
}

unsigned long long current_time_stamp() {
    fake::called(__func__, {});
    return std::exchange(fake::platform.now_ms, fake::platform.now_ms + fake::platform.tick_ms);
}

long long conv_to_local_time(long long milliseconds) {
    fake::called(__func__, {std::to_string(milliseconds)});
    return milliseconds + fake::platform.utc_offset_ms;
}
