// A clock that nobody sets, for pauses and speeds.
#pragma once

#include <chrono>

namespace services {

inline std::chrono::milliseconds monotonic_milliseconds() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

inline std::chrono::seconds monotonic_seconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(monotonic_milliseconds());
}

}  // namespace services
