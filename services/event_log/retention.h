// How long events are kept, and the removal of those that are older.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>

#include "platform/standalone/store/event_store.h"

namespace services {

inline constexpr int DEFAULT_KEEP_DAYS = 365;

/// Reads key "keep_days" of section "log" afresh: a decimal number of at least 1. Anything else
/// means the default.
int keep_days();

/// Events that go in one transaction.
inline constexpr int REMOVED_AT_ONCE = 500;

/// Removes the events from before a time, the oldest first, in small transactions.
/// @param oldest_ms milliseconds since the epoch
/// @param go_on     asked between two transactions
void remove_older_events(standalone::EventStore& store, long long oldest_ms,
                         const std::function<bool()>& go_on);

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
