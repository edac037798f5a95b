// recording-backupd: takes the notices about backup tasks, keeps their queue and runs them.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <thread>

#include "platform/service_addresses.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/recorder_identity.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/front/daemon_routes.h"
#include "services/backup_daemon/front/preview_text.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "services/backup_daemon/memory/recheck.h"
#include "services/backup_daemon/memory/take_over.h"
#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/run/older_folders.h"
#include "services/backup_daemon/run/preview.h"
#include "services/backup_daemon/run/run_settings.h"
#include "services/backup_daemon/run/unreadable_folders.h"
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

// What each connection waits within a second for others that hold its database. Requests wait for
// the loop, so all of it adds up to less than a second. Whatever others write is done in much less;
// into backupd.db that is --recheck alone, which rests again and again.
constexpr std::chrono::milliseconds CONFIG_WAIT(300);
constexpr std::chrono::milliseconds MEMORY_WAIT(50);
constexpr std::chrono::milliseconds OTHER_WAIT(100);
constexpr int OTHERS = 2;  // registry and events
static_assert(CONFIG_WAIT + 2 * MEMORY_WAIT + OTHERS * OTHER_WAIT < std::chrono::seconds(1));

/// Not before the start is over, which nobody waits for on HTTP.
void limit_waiting(Database& config, services::Memory& memory) {
    config.limit_waiting(CONFIG_WAIT);
    memory.schedules.limit_waiting(MEMORY_WAIT);
    memory.runs.limit_waiting(MEMORY_WAIT);
}

void serve() {
    standalone::limit_waiting(OTHER_WAIT);
    const std::string path = standalone::config_database_path();
    Database config(path, Database::Access::writing);
    standalone::require_current(config, path, standalone::config_migrations());
    services::Memory memory = services::open_memory();
    const std::string recorder = identity();
    standalone::TaskStore store(config);
    services::HttpService service("retCode", services::trusted_users());
    services::BackupRunner runner(service.loop(), config, memory.runs, recorder);
    services::RunQueue queue(store, runner, services::parallel_limit,
                             [] { return std::time(nullptr); });
    services::ScheduleKeeper schedules(store, memory.schedules, queue);
    services::add_daemon_routes(service, queue, runner);
    // Only now that the ports are ours: a second daemon must not touch the first one's queue.
    services::take_over_from_config(services::memory_database_path(), path);
    services::take_over_folders(memory.runs, standalone::ChannelStore(config).list());
    queue.take_over();
    limit_waiting(config, memory);
    const auto each_second = [&](auto step) {
        return EventWatch::every(service.loop(), TICK, step);
    };
    std::optional<services::UnreadableFolders> folders;
    // Five watches, so that a step which cannot be done keeps none of the others.
    const auto runs = each_second([&] { runner.tick(); });
    const auto due =
        each_second([&] { schedules.look(std::time(nullptr), services::machine_zone); });
    const auto deleted = each_second([&] { services::keep_only(memory, store.list()); });
    const auto waiting = each_second([&] { queue.look(); });
    const auto told = each_second([&] {
        if (folders) folders->reap();
    });
    service.run([&] {
        services::announce("recording-backupd: listening on " +
                           services::place_of({NOTICE_PORT, TASK_PORT}));
        // In the service's own log. Runs name these folders again, each of their own channels.
        folders.emplace(standalone::ChannelStore(config).list());
    });
}

Database read_config() {
    const std::string path = standalone::config_database_path();
    Database config(path, Database::Access::reading);
    standalone::require_current(config, path, standalone::config_migrations());
    return config;
}

/// Nothing is written: the connections only read.
void tell_plan(const std::string& task_id) {
    Database config = read_config();
    Database memory = services::open_existing_memory(Database::Access::reading);
    std::puts(
        services::preview_text(services::preview_of(task_id, identity(), config, memory)).c_str());
}

// Longer than the daemon waits between two looks at a database that is held.
constexpr std::chrono::milliseconds RECHECK_REST(20);

/// Copies outlive their tasks, and those of a deleted one are only reached with all.
void recheck_copies(const std::string& whose) {
    std::optional<std::string> task_id;
    if (whose != "all") task_id = whose;
    Database config = read_config();
    if (task_id && !standalone::TaskStore(config).find(*task_id))
        throw std::runtime_error("there is no task " + *task_id);
    Database memory = services::open_existing_memory(Database::Access::writing);
    std::printf("%d\n", services::recheck(memory, task_id,
                                          [] { std::this_thread::sleep_for(RECHECK_REST); }));
}

}  // namespace

int main(int argc, char** argv) {
    return services::service_main(
        "recording-backupd",
        "Serves the backup tasks' notices and queries on " +
            services::place_of({NOTICE_PORT, TASK_PORT}) +
            ".\nState folder: environment RECORDER_STATE, otherwise /var/lib/recorder.",
        argc, argv, serve,
        {{"--plan", "TASK", "Tell in JSON what a run of the task would do, and do nothing",
          tell_plan},
         {"--recheck", "TASK",
          "Have the next runs compare the copies that the task (or \"all\") has made with their "
          "recordings, and tell how many they are",
          recheck_copies}});
}
