// The event log: one row per event, in a database of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"

namespace standalone {

/// One event.
struct Event {
    long long id = 0;                    ///< grows with every event
    long long time_ms = 0;               ///< milliseconds since the epoch
    unsigned event_id = 0;               ///< event identifier, for example 0x62040001
    int channel = -1;                    ///< channel index, -1 for none
    std::string user;                    ///< who did it; "System" for run events
    std::string ip;                      ///< from where
    std::vector<std::string> arguments;  ///< application, then what the event is about
};

/// The stored events. Any call may throw DatabaseError.
class EventStore {
public:
    explicit EventStore(Database& database) : database_(database) {}

    /// Has SQLite ready what append() runs, which sees to that itself otherwise.
    void prepare_to_append();

    /// Stores an event; `event.id` is ignored. On disk when it returns.
    void append(const Event& event);

    /// Stores an event unless the minute that ends with it holds `most` alike.
    /// @param most      how many a minute may hold
    /// @param arguments events of one identifier are alike when so many of their first arguments
    ///                  are the same; 0: whatever their arguments
    /// @return whether the event is stored
    bool append_limited(const Event& event, int most, std::size_t arguments);

    /// The newest events first.
    /// @param sub_types only events whose event_id >> 16 is among these, in any order; empty: all
    /// @param limit     at most so many
    std::vector<Event> newest(const std::vector<unsigned>& sub_types, int limit);

    /// Events of a span of time, the newest first.
    /// @param before only those with a smaller id
    /// @param from, to milliseconds since the epoch, both included
    /// @param limit  at most so many
    std::vector<Event> newest_before(long long before, long long from, long long to, int limit);

    /// How many events newest() would give without a limit.
    long long count(const std::vector<unsigned>& sub_types);

    /// Removes events from before a time, the oldest first, in one transaction.
    /// @param time_ms milliseconds since the epoch
    /// @param limit   at most so many
    /// @return how many were removed
    int remove_older(long long time_ms, int limit);

private:
    int count_alike(const Event& event, std::size_t arguments);

    Database& database_;
    std::optional<Statement> insert_;
};

}  // namespace standalone
