// Reads the session, the client and the body of the request.
#include "cgi/request.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "backup/recording_backup_function.h"
#include "platform/cgi_input.h"

namespace {

/// The announced length, 0 without one.
long announced_bytes(const char* content_length) {
    return content_length == nullptr ? 0 : std::strtol(content_length, nullptr, 10);
}

}  // namespace

bool authenticate(tagINPUT* input) {
    static t_ostra_auth_info auth;  // __user points into it until the process ends
    std::memset(auth.user_name, 0, sizeof auth.user_name);
    if (input == nullptr) return false;
    if (cgi_check_user_authentication_v3(input, &auth, ADMINISTRATOR_LEVEL) != 0) return false;
    __ip = std::getenv("HTTP_X_FORWARDED_FOR");
    __user = auth.user_name[0] != '\0' ? auth.user_name : auth.user;
    return true;
}

std::vector<char> read_body(const char* content_length) {
    if (content_length == nullptr) return {};
    const long announced = announced_bytes(content_length);
    if (announced > MAX_BODY_BYTES) discard_body(content_length);
    if (announced < 0 || announced > MAX_BODY_BYTES) return {};
    std::vector<char> body(static_cast<std::size_t>(announced) + 1);
    // Every read goes to the start of the buffer. fread() gives less than asked only at the end of
    // the input, so nothing is overwritten unless the input goes on after its end, as a terminal's
    // can.
    for (auto remaining = static_cast<std::size_t>(announced); remaining > 0;) {
        const std::size_t got = std::fread(body.data(), 1, remaining, stdin);
        if (got == 0) break;
        remaining -= got;
    }
    return body;
}

void discard_body(const char* content_length) {
    char piece[16 * 1024];
    for (long remaining = announced_bytes(content_length); remaining > 0;) {
        const auto wanted = std::min<std::size_t>(remaining, sizeof piece);
        const std::size_t got = std::fread(piece, 1, wanted, stdin);
        if (got == 0) break;
        remaining -= static_cast<long>(got);
    }
}
