// A run's figures for people: percent, speed, time left.
#include "services/backup_daemon/run/progress.h"

#include <cmath>

namespace services {

double percent_of(long long done, long long planned) {
    if (planned <= 0 || done <= 0) return 0;
    if (done >= planned) return 100;
    const double share = static_cast<double>(done) / static_cast<double>(planned);
    return std::min(std::floor(share * 1000) / 10, 99.9);
}

void RateMeter::note(Milliseconds now, long long moved) {
    notes_.push_back({now, moved});
    while (notes_.size() > 2 && notes_[1].time <= now - window_) notes_.pop_front();
}

double RateMeter::rate() const {
    if (notes_.size() < 2 || notes_.back().time <= notes_.front().time) return 0;
    const auto milliseconds = (notes_.back().time - notes_.front().time).count();
    const auto bytes = notes_.back().moved - notes_.front().moved;
    return static_cast<double>(bytes) * 1000 / static_cast<double>(milliseconds);
}

std::optional<long long> seconds_left(long long left, double rate) {
    if (left <= 0) return 0;
    if (rate < 1) return {};
    return static_cast<long long>(std::ceil(static_cast<double>(left) / rate));
}

}  // namespace services
