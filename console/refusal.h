// Why a request is refused, for programs and for people.
#pragma once

#include <optional>
#include <string>

namespace console {

/// Thrown by whoever cannot go on; answered as {"error": {...}}.
struct Refusal {
    int status = 400;                        ///< HTTP's
    std::string code;                        ///< for programs: words_with_underscores
    std::string text;                        ///< for people: one sentence
    std::string field{};                     ///< the member or parameter that is wrong; ""
    std::optional<long long> retry_after{};  ///< seconds
};

/// The request has something in it that the route does not take.
inline Refusal bad_field(const std::string& field, const std::string& text) {
    return {.status = 400, .code = "bad_field", .text = text, .field = field};
}

inline Refusal not_administrator() {
    return {.status = 403, .code = "not_administrator", .text = "This is for administrators."};
}

/// What the address names is not there.
inline Refusal not_found(const std::string& text) {
    return {.status = 404, .code = "not_found", .text = text};
}

}  // namespace console
