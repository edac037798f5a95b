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

/// How many events alike a minute may hold.
struct EventLimit {
    int most = 0;
    /// Events of one identifier are alike when so many of their first arguments are the same; 0:
    /// whatever their arguments.
    std::size_t arguments = 0;
};

/// An event that is to be stored: always, or unless the minute that ends with it is full.
struct NewEvent {
    Event event;  ///< without `id`
    std::optional<EventLimit> limit{};
};

/// The stored events. Any call may throw DatabaseError.
class EventStore {
public:
    explicit EventStore(Database& database) : database_(database) {}

    /// Stores an event; `event.id` is ignored. On disk when it returns.
    void append(const Event& event);

    /// Stores an event if its limit lets it be. Whoever calls has a transaction for writing, so
    /// that nobody fills the minute in between.
    /// @return whether the event is stored
    bool append_within_limit(const NewEvent& wanted);

    /// Whether an event is stored that differs in nothing but its `id`.
    bool holds(const Event& event);

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
    int count_alike(const Event& event, const EventLimit& limit);

    Database& database_;
    std::optional<Statement> insert_;  // kept, once it was needed
};

}  // namespace standalone
