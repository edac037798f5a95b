// The CGI library: parameters from the environment, sessions from the registry.
#include "platform/cgi_input.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <exception>
#include <memory>
#include <string_view>

#include "platform/recorder_log.h"
#include "platform/standalone/store/cookie.h"
#include "platform/standalone/store/registry_answers.h"
#include "platform/standalone/store/session_store.h"
#include "platform/standalone/store/text_buffer.h"

namespace {

using standalone::take_piece;

constexpr std::size_t LONGEST_QUERY = 64 * 1024;
constexpr std::size_t MOST_PARAMETERS = 256;

struct Parameter {
    std::string name;
    std::string value;
    tagPARAMETER view{};  ///< points into the two texts
};

int hex_digit(char byte) {
    if (byte >= '0' && byte <= '9') return byte - '0';
    if (byte >= 'a' && byte <= 'f') return byte - 'a' + 10;
    if (byte >= 'A' && byte <= 'F') return byte - 'A' + 10;
    return -1;
}

/// A percent sign without two hexadecimal digits stands for itself.
std::string percent_decoded(std::string_view text) {
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int high = at + 2 < text.size() ? hex_digit(text[at + 1]) : -1;
        const int low = at + 2 < text.size() ? hex_digit(text[at + 2]) : -1;
        if (text[at] == '%' && high >= 0 && low >= 0) {
            decoded += static_cast<char>(high * 16 + low);
            at += 2;
        } else {
            decoded += text[at] == '+' ? ' ' : text[at];
        }
    }
    return decoded;
}

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string_view() : std::string_view(value);
}

}  // namespace

struct tagINPUT {
    std::deque<Parameter> parameters;  ///< a deque, so that the views stay where they are
    std::string sid;                   ///< empty when the request names no session
};

namespace {

/// Compares whole names: as a C string, one with a zero inside would be its beginning.
Parameter* find_parameter(tagINPUT& input, std::string_view wanted) {
    const auto found = std::ranges::find(input.parameters, wanted, &Parameter::name);
    return found == input.parameters.end() ? nullptr : &*found;
}

bool read_parameters(std::string_view query, tagINPUT& input) {
    if (query.size() > LONGEST_QUERY) return false;
    while (!query.empty()) {
        std::string_view value = take_piece(query, '&');
        if (value.empty()) continue;
        if (input.parameters.size() == MOST_PARAMETERS) return false;
        const std::string_view name = take_piece(value, '=');
        Parameter& added = input.parameters.emplace_back();
        added.name = percent_decoded(name);
        added.value = percent_decoded(value);
        added.view = {added.name.data(), added.value.data()};
    }
    return true;
}

void fill_user(const standalone::User& user, t_ostra_auth_info& info) {
    standalone::copy_text(user.name, info.user, sizeof info.user);
    if (user.name.size() >= sizeof info.user)
        standalone::copy_text(user.name, info.user_name, sizeof info.user_name);
    info.level = user.level;
}

}  // namespace

tagINPUT* CGI_Get_Input_URL() {
    auto input = std::make_unique<tagINPUT>();
    if (!read_parameters(environment("QUERY_STRING"), *input)) return nullptr;
    if (const Parameter* sid = find_parameter(*input, "sid"))
        input->sid = sid->value;
    else
        input->sid = standalone::find_cookie(environment("HTTP_COOKIE"), "sid").value_or("");
    return input.release();
}

void CGI_Free_Input(tagINPUT* input) {
    const std::unique_ptr<tagINPUT> owned(input);
}

tagPARAMETER* _CGI_Find_Parameter(tagINPUT* input, const char* name, ...) {
    Parameter* found = input == nullptr ? nullptr : find_parameter(*input, name);
    return found == nullptr ? nullptr : &found->view;
}

int cgi_check_user_authentication_v3(tagINPUT* input, t_ostra_auth_info* info, unsigned level) {
    if (input == nullptr || input->sid.empty()) return -1;
    try {
        const auto session = standalone::known_session(input->sid);
        if (!session || session->user.level < level) return -1;
        fill_user(session->user, *info);
        return 0;
    } catch (const std::exception& error) {
        DEBUG_LINE("session store: %s\n", error.what());
        return -1;
    }
}

int cgi_uri_token_paser(char* path_info, std::vector<std::string>* segments) {
    std::string_view rest = path_info == nullptr ? std::string_view() : path_info;
    int appended = 0;
    while (!rest.empty()) {
        const std::string_view segment = take_piece(rest, '/');
        if (segment.empty()) continue;
        segments->emplace_back(segment);
        ++appended;
    }
    return appended;
}
