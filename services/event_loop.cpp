// An event loop of its own, for work that waits for others without serving anybody.
#include "services/event_loop.h"

#include <event2/event.h>

#include <new>

namespace services {

void EventLoop::Free::operator()(event_base* base) const {
    event_base_free(base);
}

EventLoop::EventLoop() : base_(event_base_new()) {
    if (!base_) throw std::bad_alloc();
}

void EventLoop::run() {
    event_base_dispatch(base_.get());
}

void EventLoop::stop() {
    event_base_loopbreak(base_.get());
}

}  // namespace services
