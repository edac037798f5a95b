// Query string, cookie and path of a request, as the web server hands them over.
#include "platform/cgi_input.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "platform/standalone/store/registry_answers.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

constexpr std::size_t MOST_COMPARED = 16;  // parameters; all would take quadratic time

std::string asked_sid;      // what the session store was asked for last
std::string session_owner;  // whom it names

struct FreeInput {
    void operator()(tagINPUT* input) const { CGI_Free_Input(input); }
};
using InputPtr = std::unique_ptr<tagINPUT, FreeInput>;

/// The program's environment while it lives: these variables and no others. setenv(3) would keep
/// every value for ever.
class Environment {
public:
    Environment(std::string query, std::string cookie)
        : query_("QUERY_STRING=" + std::move(query)), cookie_("HTTP_COOKIE=" + std::move(cookie)) {
        environ = variables_;
    }
    ~Environment() { environ = before_; }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

private:
    std::string query_;
    std::string cookie_;
    char* variables_[3] = {query_.data(), cookie_.data(), nullptr};
    char** before_ = environ;
};

int digit_value(char digit) {
    constexpr std::string_view DIGITS = "0123456789abcdefABCDEF";
    const auto place = static_cast<int>(DIGITS.find(digit));
    return place < 16 ? place : place - 6;
}

/// RFC 3986, section 2.1, and "+" for a blank.
std::string decoded(std::string_view text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool escaped = text[i] == '%' && i + 2 < text.size() &&
                             digit_value(text[i + 1]) >= 0 && digit_value(text[i + 2]) >= 0;
        if (escaped) {
            bytes += static_cast<char>(digit_value(text[i + 1]) * 16 + digit_value(text[i + 2]));
            i += 2;
        } else {
            bytes += text[i] == '+' ? ' ' : text[i];
        }
    }
    return bytes;
}

void check_parameters(tagINPUT* input, const std::string& query) {
    std::vector<std::string> seen;
    for (std::string_view value : fuzz::pieces(query, '&')) {
        if (value.empty()) continue;
        const std::string name = decoded(fuzz::take_piece(value, '='));
        if (std::ranges::count(seen, name) != 0) continue;   // the first one counts
        if (name.find('\0') != std::string::npos) continue;  // nobody can ask for it
        if (seen.size() == MOST_COMPARED) return;
        seen.push_back(name);
        const tagPARAMETER* found = _CGI_Find_Parameter(input, name.c_str());
        check(found != nullptr && name == found->name, "each parameter is found");
        // Callers see texts, which end at a NUL.
        check(std::strcmp(found->value, decoded(value).c_str()) == 0, "a value is what was sent");
    }
}

void check_session(tagINPUT* input) {
    t_ostra_auth_info info = {};
    std::memset(info.user, 'x', sizeof info.user);
    asked_sid.clear();
    const int result = cgi_check_user_authentication_v3(input, &info, ADMINISTRATOR_LEVEL);
    check((result == 0) == !asked_sid.empty(), "without a SID there is no session");
    if (const tagPARAMETER* sid = _CGI_Find_Parameter(input, "sid"))
        check(asked_sid.c_str() == std::string(sid->value),
              "the parameter comes before the cookie");
    check(asked_sid.find(';') == std::string::npos || _CGI_Find_Parameter(input, "sid") != nullptr,
          "a cookie ends at its semicolon");
    if (result != 0) return;
    check(std::strlen(info.user) < sizeof info.user, "the user's name fits");
    check(std::strlen(info.user_name) < sizeof info.user_name, "the user's long name fits");
    const std::string name = info.user_name[0] != '\0' ? info.user_name : info.user;
    check(session_owner.starts_with(name) || session_owner.find('\0') != std::string::npos,
          "the name is the session's");
    check(!fuzz::is_utf8_text(session_owner) || fuzz::is_utf8_text(name), "no character is cut");
}

void check_path(std::string path) {
    std::vector<std::string> segments = {"before"};
    const int count = cgi_uri_token_paser(path.data(), &segments);
    check(segments.size() == static_cast<std::size_t>(count) + 1, "segments are appended");
    std::vector<std::string_view> expected = fuzz::pieces(path, '/');
    std::erase(expected, "");
    segments.erase(segments.begin());
    check(std::ranges::equal(segments, expected), "segments are what stands between slashes");
}

/// The query string has its limits.
bool too_much(const std::string& query) {
    const auto parts = fuzz::pieces(query, '&');
    return query.size() > 64UL * 1024 ||
           std::ranges::count_if(parts, [](const auto& part) { return !part.empty(); }) > 256;
}

}  // namespace

// In the session store's place: every SID has a session.

namespace standalone {

std::optional<OwnSession> known_session(const std::string& sid) {
    asked_sid = sid;
    return OwnSession{.user = {.name = session_owner, .level = ADMINISTRATOR_LEVEL}};
}

}  // namespace standalone

// Line by line: query string, cookie, path, the session's user.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string input = fuzz::text(data, size);
    std::ranges::replace(input, '\0', ' ');  // none in an environment
    std::string_view rest = input;
    const std::string query(fuzz::take_piece(rest, '\n'));
    const std::string cookie(fuzz::take_piece(rest, '\n'));
    const std::string path(fuzz::take_piece(rest, '\n'));
    session_owner = rest;
    const Environment environment(query, cookie);
    const InputPtr request(CGI_Get_Input_URL());
    check((request == nullptr) == too_much(query), "a query has its limits");
    check_path(path);
    if (request == nullptr) return 0;
    check_parameters(request.get(), query);
    check_session(request.get());
    return 0;
}
