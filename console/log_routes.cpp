// The event log, filtered: as pages, and as a CSV file.
#include "console/log_routes.h"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "console/log_kinds.h"
#include "platform/standalone/store/complain.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/csv.h"
#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/event_text.h"
#include "platform/standalone/store/task_store.h"

namespace console {

namespace {

using standalone::Event;
using standalone::EventStore;

constexpr long long ALL = std::numeric_limits<long long>::max();
constexpr long long LAST_SECOND = ALL / 1000 - 1;
constexpr long long DEFAULT_LIMIT = 100;
constexpr long long LARGEST_LIMIT = 500;
constexpr int LOOKED_AT_ONCE = 1000;
constexpr int LOOKED_AT_BY_A_PAGE = 20'000;

char small_letter(char byte) {
    return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte;
}

/// With small letters, as far as ASCII has them.
std::string folded(std::string text) {
    std::ranges::transform(text, text.begin(), small_letter);
    return text;
}

struct Filter {
    std::optional<std::string> task_name{};
    std::string kind;
    std::string text;  ///< folded
    long long from_ms = 0;
    long long to_ms = 0;

    bool lets_through(const Event& event) const {
        if (task_name && event_task(event) != *task_name) return false;
        if (!kind.empty() && kind_of(event.event_id) != kind) return false;
        if (text.empty()) return true;
        const std::string all =
            event_text(event) + '\n' + event_task(event) + '\n' + event.user + '\n' + event.ip;
        return folded(all).find(text) != std::string::npos;
    }
};

/// Events name tasks, and have no identifiers of theirs.
std::string name_of(const std::string& task_id) {
    const auto task = standalone::TaskStore(standalone::config_for_reading()).find(task_id);
    if (!task) throw not_found("There is no such task any more.");
    return task->taskName;
}

Filter filter_of(const Request& request) {
    Filter filter{.kind = request.parameter("kind"),
                  .text = folded(request.parameter("text")),
                  .from_ms = std::min(request.number("from", 0), LAST_SECOND) * 1000,
                  .to_ms = std::min(request.number("to", LAST_SECOND), LAST_SECOND) * 1000 + 999};
    if (const std::string task = request.parameter("task"); !task.empty())
        filter.task_name = name_of(task);
    if (!filter.kind.empty() && !is_kind(filter.kind))
        throw bad_field("kind", "There is no such kind of events.");
    return filter;
}

/// Shows events to `visit`, newest first, until it has enough.
/// @return where to go on; nothing when there is nothing more
template <class Visit>
std::optional<long long> visit_events(const Filter& filter, long long before, Visit visit) {
    EventStore store(standalone::events_for_reading());
    for (;;) {
        const auto events =
            store.newest_before(before, filter.from_ms, filter.to_ms, LOOKED_AT_ONCE);
        for (const Event& event : events) {
            before = event.id;
            if (!visit(event)) return before;
        }
        if (std::ssize(events) < LOOKED_AT_ONCE) return {};
    }
}

Json object_of(const Event& event) {
    Json object = Json::object();
    object.add("id", event.id);
    object.add("time", event.time_ms / 1000);
    object.add("user", event.user);
    object.add("address", event.ip);
    object.add("kind", kind_of(event.event_id));
    object.add("task", event_task(event));
    object.add("text", event_text(event));
    return object;
}

void print_line(const Event& event) {
    const std::string line = standalone::csv_line(
        {event_time(event), std::to_string(event.time_ms / 1000), event.user, event.ip,
         std::string(kind_of(event.event_id)), event_task(event), event_text(event)});
    std::fwrite(line.data(), 1, line.size(), stdout);
}

/// What stands at the end of a file that has begun and cannot be gone on with.
constexpr char NOT_WHOLE[] = "The log could not be read any further: this is not all of it.";

void print_lines(const Filter& filter) {
    try {
        visit_events(filter, ALL, [&filter](const Event& event) {
            if (filter.lets_through(event)) print_line(event);
            return true;
        });
    } catch (const std::exception& error) {
        standalone::complain("console.cgi", error.what());
        std::fputs(standalone::csv_line({"", "", "", "", "", "", NOT_WHOLE}).c_str(), stdout);
    }
}

}  // namespace

Reply get_log(const Request& request) {
    const Filter filter = filter_of(request);
    const long long limit = std::clamp(request.number("limit", DEFAULT_LIMIT), 1LL, LARGEST_LIMIT);
    Json page = Json::array();
    int looked_at = 0;
    const auto older = visit_events(filter, request.number("before", ALL), [&](const Event& event) {
        if (filter.lets_through(event)) page.append(object_of(event));
        ++looked_at;
        return static_cast<long long>(page.size()) < limit && looked_at < LOOKED_AT_BY_A_PAGE;
    });
    Json object = Json::object();
    object.add("events", page);
    object.add("older", older);
    return json_reply(object);
}

Reply get_log_file(const Request& request) {
    const Filter filter = filter_of(request);
    return {.headers = {"Content-Disposition: attachment; filename=\"recorder-log.csv\""},
            .type = "text/csv; charset=utf-8",
            .body = standalone::csv_line(
                {"Time", "Time stamp", "User", "Address", "Kind", "Task", "Event"}),
            .print_rest = [filter] { print_lines(filter); }};
}

}  // namespace console
