// The event log: one row per event, in a database of its own.
#include "platform/standalone/event_store.h"

#include "platform/standalone/strict_json.h"

namespace standalone {

namespace {

std::string print_arguments(const std::vector<std::string>& arguments) {
    const JsonPtr array(json_object_new_array());
    for (const std::string& text : arguments)
        json_object_array_add(
            array.get(), json_object_new_string_len(text.data(), static_cast<int>(text.size())));
    return print_json(array.get());
}

std::vector<std::string> parse_arguments(const std::string& text) {
    std::vector<std::string> arguments;
    const JsonPtr array(json_tokener_parse(text.c_str()));
    if (!json_object_is_type(array.get(), json_type_array)) return arguments;
    for (std::size_t at = 0; at < json_object_array_length(array.get()); ++at)
        arguments.emplace_back(json_object_get_string(json_object_array_get_idx(array.get(), at)));
    return arguments;
}

/// A condition with one parameter for each sub-type, empty for none.
std::string sub_type_condition(std::size_t count) {
    std::string condition;
    for (std::size_t at = 0; at < count; ++at)
        condition += at == 0 ? " WHERE sub_type IN (?" : ",?";
    return count == 0 ? condition : condition + ")";
}

int bind_sub_types(Statement& statement, const std::vector<unsigned>& sub_types) {
    int parameter = 1;
    for (const unsigned sub_type : sub_types) statement.bind(parameter++, sub_type);
    return parameter;
}

}  // namespace

void EventStore::append(const Event& event) {
    Statement insert = database_.prepare(
        "INSERT INTO event (time_ms, event_id, channel, user, ip, arguments) "
        "VALUES (?, ?, ?, ?, ?, ?)");
    insert.bind(1, event.time_ms).bind(2, event.event_id).bind(3, event.channel);
    insert.bind(4, event.user).bind(5, event.ip).bind(6, print_arguments(event.arguments)).step();
}

std::vector<Event> EventStore::newest(const std::vector<unsigned>& sub_types, int limit) {
    Statement row =
        database_.prepare("SELECT id, time_ms, event_id, channel, user, ip, arguments FROM event" +
                          sub_type_condition(sub_types.size()) + " ORDER BY id DESC LIMIT ?");
    row.bind(bind_sub_types(row, sub_types), limit < 0 ? 0 : limit);
    std::vector<Event> events;
    while (row.step())
        events.push_back({row.integer(0), row.integer(1), static_cast<unsigned>(row.integer(2)),
                          static_cast<int>(row.integer(3)), row.text(4), row.text(5),
                          parse_arguments(row.text(6))});
    return events;
}

long long EventStore::count(const std::vector<unsigned>& sub_types) {
    Statement row =
        database_.prepare("SELECT count(*) FROM event" + sub_type_condition(sub_types.size()));
    bind_sub_types(row, sub_types);
    row.step();
    return row.integer(0);
}

}  // namespace standalone
