// Answers log queries with the stored events, as JSON or CSV.
#include "services/event_log/log_routes.h"

#include <json-c/json.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "platform/service_addresses.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/csv.h"
#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/event_text.h"
#include "platform/standalone/store/state_folder.h"
#include "services/event_log/log_query.h"

namespace services {
namespace {

using standalone::Event;

struct Log {
    std::vector<Event> events;  // newest first
    long long matching = 0;     // stored events that the query matches
};

LogQuery read_query(const HttpRequest& request) {
    try {
        return parse_log_query(request.parameters);
    } catch (const BadQuery& error) {
        throw HttpError(400, error.what());
    }
}

Log read_log(const LogQuery& query) {
    if (!std::filesystem::exists(standalone::event_database_path())) return {};
    standalone::Database& database = standalone::events_for_reading();
    // Entries and number are from one moment.
    const standalone::Transaction moment(database, standalone::Database::Access::reading);
    standalone::EventStore store(database);
    return {store.newest(query.sub_types, query.max_results), store.count(query.sub_types)};
}

json_object* new_entry(const Event& event) {
    json_object* entry = json_object_new_object();
    const auto add = [entry](const char* key, json_object* value) {
        json_object_object_add(entry, key, value);
    };
    add("id", json_object_new_int64(event.id));
    add("time", new_json_text(standalone::event_time(event)));
    add("timeStamp", json_object_new_int64(event.time_ms / 1000));
    add("user", new_json_text(event.user));
    add("ip", new_json_text(event.ip));
    add("application", new_json_text(standalone::event_application(event)));
    add("event", new_json_text(standalone::event_text(event)));
    add("task", new_json_text(standalone::event_task(event)));
    add("eventID", new_json_text(standalone::event_code(event)));
    return entry;
}

}  // namespace

HttpReply json_log(const HttpRequest& request) {
    const Log log = read_log(read_query(request));
    json_object* entries = json_object_new_array();
    for (const Event& event : log.events) json_object_array_add(entries, new_entry(event));
    const JsonPtr reply(json_object_new_object());
    const auto add = [&reply](const char* key, json_object* value) {
        json_object_object_add(reply.get(), key, value);
    };
    add("code", json_object_new_int(0));
    add("mesg", json_object_new_string("Success."));
    add("responseItems", json_object_new_int64(static_cast<std::int64_t>(log.events.size())));
    add("totalItems", json_object_new_int64(log.matching));
    add("logs", entries);
    return json_reply(reply);
}

HttpReply csv_log(const HttpRequest& request) {
    const Log log = read_log(read_query(request));
    std::string text = standalone::csv_line(
        {"Time", "Time stamp", "User", "Address", "Application", "Event", "Task"});
    for (const Event& event : log.events)
        text += standalone::csv_line(
            {standalone::event_time(event), std::to_string(event.time_ms / 1000), event.user,
             event.ip, standalone::event_application(event), standalone::event_text(event),
             standalone::event_task(event)});
    return {"text/csv; charset=utf-8", text};
}

void add_log_routes(HttpService& service) {
    service.route(LOG_PORT, Method::get, LOG_PATH, json_log);
    service.route(LOG_PORT, Method::get, LOG_FILE_PATH, csv_log);
}

}  // namespace services
