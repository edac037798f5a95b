// recording-backupd: takes the notices about backup tasks, keeps their queue and runs them.
#include <chrono>
#include <ctime>

#include "platform/service_addresses.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/recorder_identity.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/front/daemon_routes.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "services/backup_daemon/memory/take_over.h"
#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/run/older_folders.h"
#include "services/backup_daemon/run/run_settings.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/backup_daemon/when/schedule_keeper.h"
#include "services/event_watch.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

using services::EventWatch;
using standalone::Database;

// Progress is written, processes are looked after, schedules come due and what deleted tasks left
// is forgotten once a second.
constexpr std::chrono::seconds TICK(1);

/// Who this recorder is, as recorderctl init has made it known.
std::string identity() {
    const std::string path = standalone::registry_database_path();
    Database registry(path, Database::Access::reading);
    standalone::require_current(registry, path, standalone::registry_migrations());
    return standalone::recorder_identity(registry);
}

void serve() {
    const std::string path = standalone::config_database_path();
    Database config(path, Database::Access::writing);
    standalone::require_current(config, path, standalone::config_migrations());
    services::Memory memory = services::open_memory();
    standalone::TaskStore store(config);
    services::HttpService service("retCode", services::trusted_users());
    services::BackupRunner runner(service.loop(), config, memory.runs, identity());
    services::RunQueue queue(store, runner, services::parallel_limit,
                             [] { return std::time(nullptr); });
    services::ScheduleKeeper schedules(store, memory.schedules, queue);
    services::add_daemon_routes(service, queue, runner);
    // Only now that the ports are ours: a second daemon must not touch the first one's queue.
    services::take_over_from_config(services::memory_database_path(), path);
    services::take_over_folders(memory.runs, standalone::ChannelStore(config).list());
    queue.take_over();
    const auto ticks = EventWatch::every(service.loop(), TICK, [&] {
        runner.tick();
        schedules.look(std::time(nullptr), services::machine_zone);
        services::keep_only(memory, store.list());
        queue.look();
    });
    services::announce("recording-backupd: listening on " +
                       services::place_of({NOTICE_PORT, TASK_PORT}));
    service.run();
}

}  // namespace

int main(int argc, char** argv) {
    return services::service_main(
        "recording-backupd",
        "Serves the backup tasks' notices and queries on " +
            services::place_of({NOTICE_PORT, TASK_PORT}) +
            ".\nState folder: environment RECORDER_STATE, otherwise /var/lib/recorder.",
        argc, argv, serve);
}
