// What comes of trying to send an alert.
#pragma once

#include <functional>
#include <string>

namespace services {

struct AttemptResult {
    bool arrived = false;
    std::string words;  ///< one line: why it has not; "" when it has
    /// The server will never take anything for this recipient: another attempt is useless.
    bool refused_for_good = false;

    bool operator==(const AttemptResult&) const = default;
};

/// Takes the result as soon as it is known: what comes behind, a good-bye to the server, may hang.
using AttemptReport = std::function<void(const AttemptResult&)>;

/// Tries to send an alert and reports once. What it throws instead is why it has not arrived.
using Attempt = std::function<void(const AttemptReport&)>;

}  // namespace services
