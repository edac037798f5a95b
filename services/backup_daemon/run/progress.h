// A run's figures for people: percent, speed, time left.
#pragma once

#include <chrono>
#include <deque>
#include <optional>

namespace services {

/// Percent with one decimal, rounded down: 100 means all of it. Nothing planned is 0.
double percent_of(long long done, long long planned);

/// Speed over the last of a run's time.
class RateMeter {
public:
    using Milliseconds = std::chrono::milliseconds;

    /// @param window how far back it looks
    explicit RateMeter(Milliseconds window) : window_(window) {}

    /// Notes how many bytes were moved in all until now; times are of a clock that nobody sets.
    void note(Milliseconds now, long long moved);

    /// Bytes per second between the first and the last note of the window; 0 with less than two.
    double rate() const;

private:
    struct Note {
        Milliseconds time;
        long long moved;
    };
    const Milliseconds window_;
    std::deque<Note> notes_;
};

/// Seconds until `left` bytes are copied at this speed, rounded up; nothing when nothing moves.
std::optional<long long> seconds_left(long long left, double rate);

}  // namespace services
