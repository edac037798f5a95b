// What a request is answered with.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "console/json.h"
#include "console/refusal.h"

namespace console {

struct Reply {
    int status = 200;
    std::vector<std::string> headers{};  ///< beside the type: "Name: value"
    std::string type = "application/json";
    std::string body{};
    std::function<void()>
        print_rest{};  ///< prints what follows the body, too long to be kept; throws nothing
};

/// @param headers as Reply's
Reply json_reply(const Json& object, std::vector<std::string> headers = {});

Reply refusal_reply(const Refusal& refusal);

/// As a web server takes it from a CGI program (RFC 3875).
void print(const Reply& reply);

}  // namespace console
