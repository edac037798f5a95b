// Calls a function when a descriptor is readable, a signal comes or time has passed, in a libevent
// loop.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

struct event;
struct event_base;

namespace services {

/// Watches for as long as it lives; the function may destroy it.
///
/// Whatever the function throws is printed on standard error (see Complaints: the same line now and
/// then), the loop goes on, and unless the function has destroyed the watch it is called again:
///
/// | watch | after an exception |
/// |---|---|
/// | every | next time, as ever |
/// | after | every RETRY, until it returns without one |
/// | readable | after RETRY at the earliest, if there is something to read then |
/// | signal | with the next signal |
///
/// What is no std::exception, or comes while one is dealt with (no memory for a line or a timer),
/// ends the process: no exception goes through the library, and no watch is lost in silence. A
/// service that has ended is started anew and takes up what it had stored.
class EventWatch {
public:
    using Action = std::function<void()>;
    static constexpr std::chrono::milliseconds RETRY{1000};

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
    explicit EventWatch(std::shared_ptr<Inside> inside) : inside_(std::move(inside)) {}
    std::shared_ptr<Inside> inside_;  // shared with the call of the function that destroys it
};

}  // namespace services
