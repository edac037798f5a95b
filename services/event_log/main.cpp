// recorder-logd: serves the event log as JSON and as CSV, and removes what is too old.
#include <chrono>
#include <filesystem>

#include "platform/service_addresses.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/journal_room.h"
#include "platform/standalone/store/locked_file.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "services/event_log/event_intake.h"
#include "services/event_log/log_routes.h"
#include "services/event_log/retention.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

/// Opens the log for good. SQLite's index of the write-ahead file lives as long as somebody has it
/// open: without it each request that writes an event would read the file's up to 4 MB first.
void open_log() {
    const std::string path = standalone::event_database_path();
    if (!std::filesystem::exists(path)) return;
    standalone::Database& events = standalone::events_for_reading();
    standalone::require_current(events, path, standalone::event_migrations());
    standalone::make_room_in_journal(events);
}

// What an event waits for others that hold the database. Queries wait as long; whoever has sent the
// event stores it itself then, and waits as long as it likes.
constexpr std::chrono::milliseconds LONGEST_WAIT(400);

void serve() {
    standalone::limit_waiting(LONGEST_WAIT);
    open_log();
    const standalone::LockedFile journal(standalone::event_database_path() + "-wal");
    services::HttpService service("code", services::trusted_users());
    services::add_log_routes(service);
    // Only now that the port is ours: a second service must not take the first one's letters.
    const services::EventIntake intake(service.loop(), standalone::event_socket_path());
    const services::Retention retention;
    service.run([] {
        services::announce("recorder-logd: listening on " + services::place_of({LOG_PORT}));
    });
}

}  // namespace

int main(int argc, char** argv) {
    return services::service_main("recorder-logd",
                                  "Serves the event log on " + services::place_of({LOG_PORT}) +
                                      ".\n"
                                      "State folder: environment RECORDER_STATE, otherwise "
                                      "/var/lib/recorder.",
                                  argc, argv, serve);
}
