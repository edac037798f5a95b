// Spares a look that would find what the one before has found.
#pragma once

#include <limits>
#include <optional>
#include <utility>

namespace services {

/// A time that never comes.
inline constexpr long long NEVER = std::numeric_limits<long long>::max();

/// What the last look has seen. A look that depends on nothing but what it sees and on the time
/// need not be repeated while all that is as it was, up to the first moment at which time alone
/// makes a difference; nor does it hold for a time before its own, which a clock that is set back
/// tells. Times are seconds since the epoch.
///
/// What is seen of a database is its version from before it is read. So a look that has written
/// there is repeated, and only one that has left all as it was is relied on.
/// @tparam Seen what the look depends on; comparable
template <typename Seen>
class LastLook {
public:
    bool holds(const Seen& seen, long long now) const {
        return seen_ == seen && from_ <= now && now < until_;
    }

    /// A look has come to its end.
    /// @param until a look may find something else then; NEVER
    void note(Seen seen, long long now, long long until) {
        seen_ = std::move(seen);
        from_ = now;
        until_ = until;
    }

private:
    std::optional<Seen> seen_;
    long long from_ = 0;
    long long until_ = 0;
};

}  // namespace services
