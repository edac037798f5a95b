// recording-backupd: takes the notices about backup tasks and keeps the queue of their runs.
#include "platform/standalone/database.h"
#include "platform/standalone/state_folder.h"
#include "platform/standalone/task_store.h"
#include "services/backup_daemon/daemon_routes.h"
#include "services/backup_daemon/run_queue.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

void serve() {
    using standalone::Database;
    Database database(standalone::config_database_path(), Database::Mode::read_write);
    standalone::TaskStore store(database);
    services::RunQueue queue(store);
    services::HttpService service("retCode");
    services::add_daemon_routes(service, queue);
    // Only now that the ports are ours: a second daemon must not touch the first one's queue.
    queue.take_over();
    services::announce("recording-backupd: listening on 127.0.0.1, ports 10205 and 10141");
    service.run();
}

}  // namespace

int main(int argc, char** argv) {
    return services::service_main(
        "recording-backupd",
        "Serves the backup tasks' notices and queries on 127.0.0.1, ports "
        "10205 and 10141.\nState folder: environment RECORDER_STATE, "
        "otherwise /var/lib/recorder.",
        argc, argv, serve);
}
