// Time as it is handed in to whatever waits or measures: two readings and an alarm.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

struct event_base;  // libevent

namespace services {

/// A clock. Tests set one by hand; LoopClock is the machine's.
class Clock {
public:
    /// Something that is to happen later; destroying it takes it back.
    class Alarm {
    public:
        virtual ~Alarm() = default;
    };

    virtual ~Clock() = default;

    /// Time that nobody sets, from some moment on: for pauses and speeds.
    virtual std::chrono::milliseconds steady() const = 0;

    /// Time since the epoch as the machine shows it: for people.
    virtual std::chrono::milliseconds wall() const = 0;

    /// Calls `action` once when `pause` has passed, never before this call has returned. The action
    /// may destroy the alarm.
    virtual std::unique_ptr<Alarm> after(std::chrono::milliseconds pause,
                                         std::function<void()> action) = 0;
};

/// The machine's clock; alarms ring in an event loop, which outlives it, as those of
/// EventWatch::after() do.
class LoopClock : public Clock {
public:
    explicit LoopClock(event_base* loop) : loop_(loop) {}

    std::chrono::milliseconds steady() const override;
    std::chrono::milliseconds wall() const override;
    std::unique_ptr<Alarm> after(std::chrono::milliseconds pause,
                                 std::function<void()> action) override;

private:
    event_base* loop_;
};

}  // namespace services
