// Time as it is handed in to whatever waits or measures: two readings and an alarm.
#include "services/clock.h"

#include "services/event_watch.h"

namespace services {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

struct LoopAlarm : Clock::Alarm {
    explicit LoopAlarm(std::unique_ptr<EventWatch> later) : watch(std::move(later)) {}
    std::unique_ptr<EventWatch> watch;
};

}  // namespace

milliseconds LoopClock::steady() const {
    return duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
}

milliseconds LoopClock::wall() const {
    return duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch());
}

std::unique_ptr<Clock::Alarm> LoopClock::after(milliseconds pause, std::function<void()> action) {
    return std::make_unique<LoopAlarm>(EventWatch::after(loop_, pause, std::move(action)));
}

}  // namespace services
