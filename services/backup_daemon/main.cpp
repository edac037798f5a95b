// recording-backupd: takes the notices about backup tasks, keeps their queue and runs them.
#include <chrono>
#include <ctime>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/front/daemon_routes.h"
#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/run/parallel_limit.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/backup_daemon/when/schedule_keeper.h"
#include "services/event_watch.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

using services::EventWatch;
using standalone::Database;

// Progress is written, processes are looked after and schedules come due once a second.
constexpr std::chrono::seconds TICK(1);

void serve() {
    const std::string path = standalone::config_database_path();
    Database database(path, Database::Mode::read_write);
    standalone::require_current(database, path, standalone::config_migrations());
    // What is recorded of copies need not be on disk at once, what users are told must.
    Database copying(path, Database::Mode::read_write);
    standalone::TaskStore store(database);
    services::HttpService service("retCode");
    services::BackupRunner runner(service.loop(), copying);
    services::RunQueue queue(store, runner, services::parallel_limit,
                             [] { return std::time(nullptr); });
    services::ScheduleKeeper schedules(store, database, queue);
    services::add_daemon_routes(service, queue, runner);
    // Only now that the ports are ours: a second daemon must not touch the first one's queue.
    queue.take_over();
    const auto ticks = EventWatch::every(service.loop(), TICK, [&] {
        runner.tick();
        schedules.look(std::time(nullptr), services::machine_zone);
        queue.look();
    });
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
