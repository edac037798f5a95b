// One request, as the web server hands it over (RFC 3875).
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/cgi_input.h"

namespace console {

/// Longest body taken; the longest that a route knows has four texts.
inline constexpr long MAX_BODY_BYTES = 16 * 1024;

struct ReleaseInput {
    void operator()(tagINPUT* input) const { CGI_Free_Input(input); }
};

using InputPtr = std::unique_ptr<tagINPUT, ReleaseInput>;

struct Request {
    std::string method;
    std::vector<std::string> segments;  ///< of the path behind the program's name
    std::string sid;                    ///< cookie "sid"; "" without one
    std::string address;                ///< the client's
    std::string tag;                    ///< If-None-Match as it came
    bool behind_tls = false;            ///< the browser reached the recorder by https
    std::string body{};                 ///< read by read_body()
    InputPtr query;

    /// A parameter of the query string; "" when it is not there.
    std::string parameter(const char* name) const;

    /// A parameter that is a whole number of at least 0.
    /// @return `otherwise` when it is not there; throws a Refusal when it is something else
    long long number(const char* name, long long otherwise) const;
};

/// Everything but the body.
/// @throws Refusal for a query of more than cgi_input.h takes
Request read_request();

/// @throws Refusal for a body that is too long or cut short
std::string read_body();

}  // namespace console
