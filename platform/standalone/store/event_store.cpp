// The event log: one row per event, in a database of its own.
#include "platform/standalone/store/event_store.h"

#include <algorithm>
#include <functional>
#include <set>

#include "platform/standalone/store/event_arguments.h"
#include "platform/standalone/store/strict_json.h"

namespace standalone {

namespace {

std::string print_arguments(const std::vector<std::string>& arguments) {
    return print_json(JsonPtr(new_event_arguments(arguments)).get());
}

/// An event whose arguments nobody can read is told without any.
std::vector<std::string> parse_arguments(const std::string& text) {
    const JsonPtr array(json_tokener_parse(text.c_str()));
    return read_event_arguments(array.get()).value_or(std::vector<std::string>());
}

constexpr long long MINUTE_MS = 60 * 1000;
constexpr char COLUMNS[] = "SELECT id, time_ms, event_id, channel, user, ip, arguments FROM event ";

void read_rows(Statement& row, std::vector<Event>& events) {
    while (row.step())
        events.push_back({.id = row.integer(0),
                          .time_ms = row.integer(1),
                          .event_id = static_cast<unsigned>(row.integer(2)),
                          .channel = static_cast<int>(row.integer(3)),
                          .user = row.text(4),
                          .ip = row.text(5),
                          .arguments = parse_arguments(row.text(6))});
}

/// The newest first. One sub-type after the other, as the index has them in order, and from the
/// index alone: of events that others push out nothing else is read, so that a query costs what it
/// answers, however many events there are.
std::vector<long long> newest_ids(Database& database, const std::vector<unsigned>& sub_types,
                                  int most) {
    Statement row =
        database.prepare("SELECT id FROM event WHERE sub_type = ? ORDER BY id DESC LIMIT ?");
    std::vector<long long> ids;
    for (const unsigned sub_type : std::set(sub_types.begin(), sub_types.end())) {
        row.reset();
        row.bind(1, sub_type).bind(2, most);
        while (row.step()) ids.push_back(row.integer(0));
    }
    std::ranges::sort(ids, std::greater());
    ids.resize(std::min(ids.size(), static_cast<std::size_t>(most)));
    return ids;
}

}  // namespace

void EventStore::append(const Event& event) {
    if (!insert_)
        insert_ = database_.prepare(
            "INSERT INTO event (time_ms, event_id, channel, user, ip, arguments) "
            "VALUES (?, ?, ?, ?, ?, ?)");
    insert_->bind(1, event.time_ms).bind(2, event.event_id).bind(3, event.channel);
    insert_->bind(4, event.user).bind(5, event.ip).bind(6, print_arguments(event.arguments)).step();
    insert_->reset();
}

bool EventStore::append_within_limit(const NewEvent& wanted) {
    const auto& [event, limit] = wanted;
    if (limit && count_alike(event, *limit) >= limit->most) return false;
    append(event);
    return true;
}

bool EventStore::holds(const Event& event) {
    Statement row = database_.prepare(
        "SELECT 1 FROM event WHERE time_ms = ? AND event_id = ? AND channel = ? AND user = ? "
        "AND ip = ? AND arguments = ?");
    row.bind(1, event.time_ms).bind(2, event.event_id).bind(3, event.channel);
    row.bind(4, event.user).bind(5, event.ip).bind(6, print_arguments(event.arguments));
    return row.step();
}

int EventStore::count_alike(const Event& event, const EventLimit& limit) {
    auto first = event.arguments;
    first.resize(std::min(first.size(), limit.arguments));
    std::string prefix = print_arguments(first);
    prefix.pop_back();  // the bracket behind them; what is left ends with a quotation mark
    Statement row = database_.prepare(
        "SELECT count(*) FROM event WHERE time_ms > ?1 - ?2 AND time_ms <= ?1 AND event_id = ?3 "
        "AND substr(arguments, 1, length(?4)) = ?4");
    row.bind(1, event.time_ms).bind(2, MINUTE_MS).bind(3, event.event_id).bind(4, prefix).step();
    return static_cast<int>(row.integer(0));
}

std::vector<Event> EventStore::newest(const std::vector<unsigned>& sub_types, int limit) {
    std::vector<Event> events;
    if (sub_types.empty()) {
        Statement row = database_.prepare(std::string(COLUMNS) + "ORDER BY id DESC LIMIT ?");
        row.bind(1, std::max(limit, 0));
        read_rows(row, events);
        return events;
    }
    Statement row = database_.prepare(std::string(COLUMNS) + "WHERE id = ?");
    for (const long long id : newest_ids(database_, sub_types, std::max(limit, 0))) {
        row.reset();
        row.bind(1, id);
        read_rows(row, events);
    }
    return events;
}

std::vector<Event> EventStore::newest_before(long long before, long long from, long long to,
                                             int limit) {
    Statement row = database_.prepare(std::string(COLUMNS) +
                                      "WHERE id < ? AND +time_ms BETWEEN ? AND ? "
                                      "ORDER BY id DESC LIMIT ?");
    row.bind(1, before).bind(2, from).bind(3, to).bind(4, limit);
    std::vector<Event> events;
    read_rows(row, events);
    return events;
}

long long EventStore::count(const std::vector<unsigned>& sub_types) {
    const std::set<unsigned> wanted(sub_types.begin(), sub_types.end());
    Statement row = database_.prepare("SELECT sub_type, events FROM event_count");
    long long events = 0;
    while (row.step())
        if (wanted.empty() || wanted.contains(static_cast<unsigned>(row.integer(0))))
            events += row.integer(1);
    return events;
}

int EventStore::remove_older(long long time_ms, int limit) {
    Statement removal = database_.prepare(
        "DELETE FROM event WHERE id IN "
        "(SELECT id FROM event WHERE time_ms < ? ORDER BY time_ms LIMIT ?)");
    removal.bind(1, time_ms).bind(2, limit).step();
    return database_.changes();
}

}  // namespace standalone
