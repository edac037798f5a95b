// How long to wait before the next attempt after the connection was lost, and when to give up.
#pragma once

#include <chrono>
#include <optional>

namespace services {

/// A lane that owes an answer and says nothing for so long hangs: the library gives up after 20
/// seconds.
inline constexpr std::chrono::seconds LONGEST_SILENCE{90};

/// 1 second, doubled with every loss up to 60; back to 1 after progress. After 30 minutes without
/// progress there is no next attempt.
class RetryPause {
public:
    using Seconds = std::chrono::seconds;
    static constexpr Seconds FIRST{1};
    static constexpr Seconds LONGEST{60};
    static constexpr Seconds PATIENCE{30 * 60};

    /// Times are of a clock that nobody sets.
    explicit RetryPause(Seconds now) : progress_(now) {}

    /// Something was copied.
    void progressed(Seconds now) {
        progress_ = now;
        next_ = FIRST;
    }

    /// The connection is lost.
    /// @return the pause before the next attempt; nothing when it is time to give up
    std::optional<Seconds> lost(Seconds now) {
        if (now - progress_ >= PATIENCE) return {};
        const Seconds pause = next_;
        next_ = std::min(next_ * 2, LONGEST);
        return pause;
    }

private:
    Seconds progress_;
    Seconds next_ = FIRST;
};

}  // namespace services
