// Tells systemd how a service is: that it is ready, that its loop turns, that it ends.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "services/event_watch.h"

struct event_base;  // libevent

namespace services {

/// What systemd has asked this process to tell it (sd_notify(3), sd_watchdog_enabled(3)):
/// NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID in the environment, which are removed from it.
/// Nothing was asked where there is no systemd, and nothing is told then.
///
/// Not by libsystemd: it is one datagram, in words that are kept stable, and the library would
/// bring half a dozen others into processes that hold passwords.
class ServiceManager {
public:
    ServiceManager();

    /// The service does what it is for from now on, or not any more.
    void tell_ready() const { tell("READY=1", 0); }
    void tell_end() const { tell("STOPPING=1", 0); }

    /// Tells from the loop, twice in the time that systemd gives it, that the loop turns. A loop
    /// that is held up tells nothing, and systemd ends the service. Null when nobody has asked.
    std::unique_ptr<EventWatch> watch(event_base* loop) const;

private:
    void tell(std::string_view words, int send_flags) const;

    std::string socket_;  ///< a path, or "@" and an abstract name; "": nobody asks
    std::chrono::microseconds patience_{};  ///< zero: no watch
};

}  // namespace services
