// An event loop of its own, for work that waits for others without serving anybody.
#pragma once

#include <memory>

struct event_base;  // libevent

namespace services {

class EventLoop {
public:
    EventLoop();

    event_base* get() const { return base_.get(); }

    /// Until stop() is called, from the loop, or nothing is left to wait for.
    void run();
    void stop();

private:
    struct Free {
        void operator()(event_base* base) const;
    };
    std::unique_ptr<event_base, Free> base_;
};

}  // namespace services
