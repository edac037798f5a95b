// recorderctl event: the event log.
#include <CLI/CLI.hpp>
#include <array>
#include <cstdio>
#include <memory>

#include "platform/standalone/store/event_store.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

using standalone::Event;

constexpr int DEFAULT_LIMIT = 100;

std::string hexadecimal(unsigned event_id) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08x", event_id);
    return text.data();
}

void print_event(const Event& event) {
    std::vector<std::string> columns = {hexadecimal(event.event_id), local_time(event.time_ms),
                                        event.user, event.ip};
    columns.insert(columns.end(), event.arguments.begin(), event.arguments.end());
    print_row(columns);
}

void print_json(const Event& event) {
    JsonLine line;
    line.add("id", static_cast<long long>(event.event_id)).add("entry", event.id);
    line.add("time", event.time_ms).add("channel", event.channel).add("user", event.user);
    line.add("ip", event.ip).add("arguments", event.arguments).print();
}

void list_events(bool json, int limit) {
    standalone::Database database = open_events();
    for (const Event& event : standalone::EventStore(database).newest({}, limit)) {
        if (json)
            print_json(event);
        else
            print_event(event);
    }
}

}  // namespace

void add_event_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("event", "The event log");
    group->require_subcommand(1);
    const auto json = std::make_shared<bool>(false);
    const auto limit = std::make_shared<int>(DEFAULT_LIMIT);
    CLI::App* list = group->add_subcommand(
        "list", "List the newest events first: id, time, user, address, arguments");
    list->add_flag("--json", *json,
                   "One JSON object a line; times in milliseconds since the epoch");
    list->add_option("--limit", *limit, "At most so many")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    list->callback([json, limit] { list_events(*json, *limit); });
}

}  // namespace recorderctl
