// A process that tries to send one alert: nobody waits for its server, and it can be ended.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/tell/alert_attempt.h"

namespace services {

/// Handle of the process. It has none of the daemon's descriptors but the standard ones, no
/// capability (sender_rights.h), is killed when the daemon ends, and hears no SIGTERM or SIGINT.
/// Destroying the handle kills it.
class SendingProcess {
public:
    /// What no attempt needs.
    static constexpr std::chrono::seconds LONGEST{60};

    /// @throws std::runtime_error when there is no process to be had
    explicit SendingProcess(const Attempt& attempt);
    ~SendingProcess();
    SendingProcess(const SendingProcess&) = delete;
    SendingProcess& operator=(const SendingProcess&) = delete;

    /// The result, nothing before there is one; it never waits. A process that ends without one, or
    /// has none after LONGEST, has failed.
    std::optional<AttemptResult> result();

    /// Becomes readable when there is a result.
    int descriptor() const { return answer_.get(); }

    /// Takes note of killed processes that have ended meanwhile. Now and then; it never waits.
    static void reap();

private:
    standalone::FileHandle answer_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
    pid_t process_ = -1;
};

}  // namespace services
