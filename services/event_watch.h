// Calls a function when a descriptor is readable, a signal comes or time has passed, in a libevent
// loop.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

struct event;
struct event_base;

namespace services {

/// Watches for as long as it lives; the function may destroy it. What the function throws is
/// printed on standard error.
class EventWatch {
public:
    using Action = std::function<void()>;

    /// Whenever `descriptor` is readable.
    static std::unique_ptr<EventWatch> readable(event_base* loop, int descriptor, Action action);
    /// Whenever the process gets a signal. One loop of a process watches signals.
    static std::unique_ptr<EventWatch> signal(event_base* loop, int number, Action action);
    /// Every `pause`.
    static std::unique_ptr<EventWatch> every(event_base* loop, std::chrono::milliseconds pause,
                                             Action action);
    /// Once, after `pause`.
    static std::unique_ptr<EventWatch> after(event_base* loop, std::chrono::milliseconds pause,
                                             Action action);
    ~EventWatch();

private:
    struct Inside;
    explicit EventWatch(std::unique_ptr<Inside> inside);
    static std::unique_ptr<EventWatch> make(event_base* loop, int descriptor, short what,
                                            const std::chrono::milliseconds* pause, Action action);
    std::unique_ptr<Inside> inside_;
};

}  // namespace services
