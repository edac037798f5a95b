// Calls a function when a descriptor is readable, a signal comes or time has passed.
#include "services/event_watch.h"

#include <event2/event.h>
#include <sys/time.h>

#include <cstdio>
#include <stdexcept>

#include "platform/standalone/store/one_line.h"

namespace services {
namespace {

struct FreeEvent {
    void operator()(event* e) const { event_free(e); }
};

void call(evutil_socket_t, short, void* context) {
    // The action may destroy the watch, and with it the function that is being called.
    const auto action = *static_cast<EventWatch::Action*>(context);
    try {
        action();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", standalone::one_line(error.what()).c_str());
    }
}

}  // namespace

struct EventWatch::Inside {
    Action action;
    std::unique_ptr<event, FreeEvent> watched;
};

EventWatch::EventWatch(std::unique_ptr<Inside> inside) : inside_(std::move(inside)) {}
EventWatch::~EventWatch() = default;

std::unique_ptr<EventWatch> EventWatch::make(event_base* loop, int descriptor, short what,
                                             const std::chrono::milliseconds* pause,
                                             Action action) {
    auto inside = std::make_unique<Inside>();
    inside->action = std::move(action);
    inside->watched.reset(event_new(loop, descriptor, what, call, &inside->action));
    timeval time{};
    if (pause) time = {pause->count() / 1000, pause->count() % 1000 * 1000};
    if (!inside->watched || event_add(inside->watched.get(), pause ? &time : nullptr) != 0)
        throw std::runtime_error("cannot watch for events");
    return std::unique_ptr<EventWatch>(new EventWatch(std::move(inside)));
}

std::unique_ptr<EventWatch> EventWatch::readable(event_base* loop, int descriptor, Action action) {
    return make(loop, descriptor, EV_READ | EV_PERSIST, nullptr, std::move(action));
}

std::unique_ptr<EventWatch> EventWatch::signal(event_base* loop, int number, Action action) {
    return make(loop, number, EV_SIGNAL | EV_PERSIST, nullptr, std::move(action));
}

std::unique_ptr<EventWatch> EventWatch::every(event_base* loop, std::chrono::milliseconds pause,
                                              Action action) {
    return make(loop, -1, EV_PERSIST, &pause, std::move(action));
}

std::unique_ptr<EventWatch> EventWatch::after(event_base* loop, std::chrono::milliseconds pause,
                                              Action action) {
    return make(loop, -1, 0, &pause, std::move(action));
}

}  // namespace services
