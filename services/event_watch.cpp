// Calls a function when a descriptor is readable, a signal comes or time has passed.
#include "services/event_watch.h"

#include <event2/event.h>
#include <sys/time.h>

#include <stdexcept>

#include "services/complaints.h"

namespace services {
namespace {

using std::chrono::milliseconds;

struct FreeEvent {
    void operator()(event* e) const { event_free(e); }
};

using Event = std::unique_ptr<event, FreeEvent>;

void begin(const Event& watched, const milliseconds* pause) {
    timeval time{};
    if (pause) time = {pause->count() / 1000, pause->count() % 1000 * 1000};
    if (!watched || event_add(watched.get(), pause ? &time : nullptr) != 0)
        throw std::runtime_error("cannot watch for events");
}

}  // namespace

struct EventWatch::Inside : std::enable_shared_from_this<Inside> {
    /// What is done when the action has thrown.
    using Recovery = void (Inside::*)();

    static std::unique_ptr<EventWatch> watch(event_base* loop, int descriptor, short what,
                                             const milliseconds* pause, Action action,
                                             Recovery recovery);
    static void call(evutil_socket_t, short, void* inside) noexcept;
    static void resume(evutil_socket_t, short, void* inside) noexcept;

    void wait_for_the_next() {}
    void ring_again();
    void rest();

    Action action;
    Recovery recovery = nullptr;
    Event watched;  ///< null when the watch is destroyed
    Event resting;  ///< rings when a rest is over
    Complaints complaints;
};

std::unique_ptr<EventWatch> EventWatch::Inside::watch(event_base* loop, int descriptor, short what,
                                                      const milliseconds* pause, Action action,
                                                      Recovery recovery) {
    auto inside = std::make_shared<Inside>();
    inside->action = std::move(action);
    inside->recovery = recovery;
    inside->watched.reset(event_new(loop, descriptor, what, call, inside.get()));
    begin(inside->watched, pause);
    return std::unique_ptr<EventWatch>(new EventWatch(std::move(inside)));
}

/// The action may destroy the watch: what it is made of stays until it has returned.
void EventWatch::Inside::call(evutil_socket_t, short, void* inside) noexcept {
    const auto self = static_cast<Inside*>(inside)->shared_from_this();
    try {
        self->action();
    } catch (const std::exception& error) {
        self->complaints.print(error.what());
        if (self->watched) (*self.*self->recovery)();
    }
}

void EventWatch::Inside::ring_again() {
    begin(watched, &RETRY);
}

/// What is there to read would call again at once, and so without end.
void EventWatch::Inside::rest() {
    event_del(watched.get());
    resting.reset(event_new(event_get_base(watched.get()), -1, 0, resume, this));
    begin(resting, &RETRY);
}

void EventWatch::Inside::resume(evutil_socket_t, short, void* inside) noexcept {
    begin(static_cast<Inside*>(inside)->watched, nullptr);
}

EventWatch::~EventWatch() {
    inside_->watched.reset();
    inside_->resting.reset();
}

std::unique_ptr<EventWatch> EventWatch::readable(event_base* loop, int descriptor, Action action) {
    return Inside::watch(loop, descriptor, EV_READ | EV_PERSIST, nullptr, std::move(action),
                         &Inside::rest);
}

std::unique_ptr<EventWatch> EventWatch::signal(event_base* loop, int number, Action action) {
    return Inside::watch(loop, number, EV_SIGNAL | EV_PERSIST, nullptr, std::move(action),
                         &Inside::wait_for_the_next);
}

std::unique_ptr<EventWatch> EventWatch::every(event_base* loop, milliseconds pause, Action action) {
    return Inside::watch(loop, -1, EV_PERSIST, &pause, std::move(action),
                         &Inside::wait_for_the_next);
}

std::unique_ptr<EventWatch> EventWatch::after(event_base* loop, milliseconds pause, Action action) {
    return Inside::watch(loop, -1, 0, &pause, std::move(action), &Inside::ring_again);
}

}  // namespace services
