// Stores in a state folder (environment RECORDER_STATE), or tells of it, what no command of
// recorderctl's does.
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/task_goal.h"
#include "platform/standalone/store/task_store.h"

namespace {

using standalone::Database;

constexpr char USAGE[] =
    "usage: service_state task < TEXT                        store a settings text\n"
    "       service_state goal TASK                          tell what a success of it stands for\n"
    "       service_state event HEX-ID MS USER IP ARGUMENT...  store an event\n";

int store_task() {
    Database database(standalone::config_database_path(), Database::Access::writing);
    const std::string text(std::istreambuf_iterator<char>(std::cin), {});
    return standalone::TaskStore(database).apply_settings(text);
}

int tell_goal(const std::string& task_id) {
    Database database(standalone::config_database_path(), Database::Access::reading);
    std::cout << standalone::task_goal(standalone::TaskStore(database).find(task_id).value());
    return 0;
}

int store_event(const std::vector<std::string>& words) {
    Database database(standalone::event_database_path(), Database::Access::writing);
    standalone::Event event;
    event.event_id = static_cast<unsigned>(std::stoul(words.at(1), nullptr, 16));
    event.time_ms = std::stoll(words.at(2));
    event.user = words.at(3);
    event.ip = words.at(4);
    event.arguments.assign(words.begin() + 5, words.end());
    standalone::EventStore(database).append(event);
    return 0;
}

int run(const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "task") return store_task();
    if (verb == "goal" && words.size() == 2) return tell_goal(words[1]);
    if (verb == "event" && words.size() >= 5) return store_event(words);
    std::cerr << USAGE;
    return 64;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "service_state: " << error.what() << '\n';
        return 1;
    }
}
