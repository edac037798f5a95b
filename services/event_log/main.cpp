// recorder-logd: serves the event log as JSON and as CSV.
#include "services/event_log/log_routes.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

void serve() {
    services::HttpService service("code");
    services::add_log_routes(service);
    services::announce("recorder-logd: listening on 127.0.0.1, port 10150");
    service.run();
}

}  // namespace

int main(int argc, char** argv) {
    return services::service_main("recorder-logd",
                                  "Serves the event log on 127.0.0.1, port 10150.\n"
                                  "State folder: environment RECORDER_STATE, otherwise "
                                  "/var/lib/recorder.",
                                  argc, argv, serve);
}
