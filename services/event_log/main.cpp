// recorder-logd: serves the event log as JSON and as CSV, and removes what is too old.
#include <filesystem>

#include "platform/service_addresses.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "services/event_log/log_routes.h"
#include "services/event_log/retention.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

void require_current_schema() {
    const std::string path = standalone::event_database_path();
    if (!std::filesystem::exists(path)) return;
    standalone::Database database(path, standalone::Database::Access::reading);
    standalone::require_current(database, path, standalone::event_migrations());
}

void serve() {
    require_current_schema();
    services::HttpService service("code", services::trusted_users());
    services::add_log_routes(service);
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
