// How large the pieces are in which a file goes over a line: the longer the line, the larger.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

namespace services {

/// What a piece is at least, and all that goes at one time over a short line.
inline constexpr std::size_t CHUNK = 1024UL * 1024;

/// What it is at most.
inline constexpr std::size_t LARGEST_CHUNK = 4 * CHUNK;

/// A line on which a request takes so long, or longer, is a long one.
inline constexpr std::chrono::milliseconds LONG_LINE(10);

/// Times what is done anyway, over one connection. Between two pieces the line waits for an answer,
/// which on a long one takes longer than a small piece; but no piece may take so long that the
/// server seems to be lost.
class Pace {
public:
    using Clock = std::chrono::steady_clock;
    using Now = std::function<Clock::time_point()>;

    explicit Pace(Now now = Clock::now) : now_(std::move(now)) {}

    /// Times a request that moves nothing. The shortest counts: the others waited for more than
    /// the line.
    template <typename Action>
    auto ask(Action action) {
        const auto begin = now_();
        auto result = action();
        answered(now_() - begin);
        return result;
    }

    /// A request that moves nothing has taken so long.
    void answered(Clock::duration took) {
        round_trip_ = round_trip_ ? std::min(*round_trip_, took) : took;
    }

    /// Times so many bytes on their way to the share. The latest count, but for a small rest of
    /// a file: its time is mostly the round trip, and says little unless it is longer than before.
    template <typename Action>
    void send(std::size_t size, Action action) {
        const auto begin = now_();
        action();
        const auto took = now_() - begin;
        if (size >= CHUNK || !latest_ || took > latest_->took) latest_ = Sent{size, took};
    }

    /// Bytes of the next piece.
    std::size_t chunk() const {
        using namespace std::chrono_literals;
        constexpr auto MOST_PATIENCE = 2s;
        if (!round_trip_ || *round_trip_ < LONG_LINE || !latest_) return CHUNK;
        const double fits = std::chrono::duration<double>(MOST_PATIENCE) / latest_->took;
        const double wanted = static_cast<double>(latest_->size) * fits;
        if (wanted >= static_cast<double>(LARGEST_CHUNK)) return LARGEST_CHUNK;
        return std::max(CHUNK, static_cast<std::size_t>(wanted) / CHUNK * CHUNK);
    }

private:
    struct Sent {
        std::size_t size;
        Clock::duration took;
    };

    Now now_;
    std::optional<Clock::duration> round_trip_;
    std::optional<Sent> latest_;
};

}  // namespace services
