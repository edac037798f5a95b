// How long events are kept, and the removal of those that are older.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace services {

inline constexpr int DEFAULT_KEEP_DAYS = 365;

/// The days that a configured text means: a decimal number of at least 1. Any other text means the
/// default: nobody loses the log by a slip of the pen.
int parse_keep_days(const std::string& text);

/// Reads key "keep_days" of section "log" afresh. A key that is absent or cannot be read means the
/// default.
int keep_days();

/// Removes old events as long as it lives: at once, and then once a day. Works beside the service
/// in a thread of its own, in small transactions with pauses between them, so that neither readers
/// nor writers wait for it. What goes wrong is one line on standard error and tried again a day
/// later.
class Retention {
public:
    Retention();

private:
    void work(const std::stop_token& stop);
    void remove_old(const std::stop_token& stop);
    /// @return whether it is to stop
    bool pause(const std::stop_token& stop, std::chrono::milliseconds length);

    std::mutex mutex_;
    std::condition_variable_any stopped_;
    std::jthread thread_;  // last: it uses the others until it is joined
};

}  // namespace services
