// recording-backupd: takes the notices about backup tasks, keeps their queue and runs them.
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "platform/service_addresses.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/journal_room.h"
#include "platform/standalone/store/locked_file.h"
#include "platform/standalone/store/recorder_identity.h"
#include "platform/standalone/store/schema.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/front/alert_tests.h"
#include "services/backup_daemon/front/daemon_routes.h"
#include "services/backup_daemon/front/metrics_route.h"
#include "services/backup_daemon/front/preview_text.h"
#include "services/backup_daemon/memory/memory_database.h"
#include "services/backup_daemon/memory/old_runs.h"
#include "services/backup_daemon/memory/recheck.h"
#include "services/backup_daemon/memory/secured_history.h"
#include "services/backup_daemon/memory/sweeper.h"
#include "services/backup_daemon/memory/take_over.h"
#include "services/backup_daemon/memory/times_watch.h"
#include "services/backup_daemon/run/backup_runner.h"
#include "services/backup_daemon/run/destination.h"
#include "services/backup_daemon/run/older_folders.h"
#include "services/backup_daemon/run/preview.h"
#include "services/backup_daemon/run/run_settings.h"
#include "services/backup_daemon/run/unreadable_folders.h"
#include "services/backup_daemon/tell/alert_attempts.h"
#include "services/backup_daemon/tell/alert_keeper.h"
#include "services/backup_daemon/tell/alert_sender.h"
#include "services/backup_daemon/tell/alert_settings.h"
#include "services/backup_daemon/tell/alert_trial.h"
#include "services/backup_daemon/when/overdue_keeper.h"
#include "services/backup_daemon/when/run_queue.h"
#include "services/backup_daemon/when/schedule_keeper.h"
#include "services/event_watch.h"
#include "services/http_service.h"
#include "services/service_main.h"

namespace {

using services::EventWatch;
using standalone::Database;

// Progress is written, processes are looked after, schedules come due, tasks become overdue and
// what deleted tasks left is forgotten once a second.
constexpr std::chrono::seconds TICK(1);

// Problems that no run's end brings are those of time.
constexpr std::chrono::seconds PROBLEMS_PAUSE(10);

// Old runs go a few at a time, with a pause in between.
constexpr std::chrono::minutes PRUNING_PAUSE(1);

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
constexpr std::chrono::milliseconds CONFIG_WAIT(400);
constexpr std::chrono::milliseconds MEMORY_WAIT(50);
constexpr std::chrono::milliseconds OTHER_WAIT(100);
constexpr int OTHERS = 2;  // registry and events
static_assert(CONFIG_WAIT + 2 * MEMORY_WAIT + OTHERS * OTHER_WAIT < std::chrono::seconds(1));

std::string share_of(const TDataBackupConfig& task) {
    return services::destination_of(task).share_key();
}

/// Not before the start is over, which nobody waits for on HTTP.
void limit_waiting(Database& config, services::Memory& memory) {
    config.limit_waiting(CONFIG_WAIT);
    memory.schedules.limit_waiting(MEMORY_WAIT);
    memory.runs.limit_waiting(MEMORY_WAIT);
}

Database open_config(Database::Access access) {
    const std::string path = standalone::config_database_path();
    Database config(path, access);
    standalone::require_current(config, path, standalone::config_migrations());
    return config;
}

/// The daemon's parts, each behind those that it uses, and when they do what.
class Daemon {
public:
    /// @throws std::runtime_error also when the ports are another daemon's
    Daemon() {
        services::add_daemon_routes(service_, queue_, runner_);
        services::add_alert_test_routes(service_, tests_);
        services::add_metrics_route(service_, {store_, queue_, runner_, metrics_, sender_});
    }

    /// Until a signal ends the process.
    void serve() {
        take_over();
        standalone::make_room_in_journal(config_);
        const standalone::LockedFile journal(standalone::config_database_path() + "-wal");
        limit_waiting(config_, memory_);
        watch();
        service_.run([this] { tell_that_it_serves(); });
    }

private:
    /// Only now that the ports are ours: a second daemon must not touch the first one's queue.
    void take_over() {
        services::take_over_from_config(services::memory_database_path(),
                                        standalone::config_database_path());
        services::take_over_folders(memory_.runs, standalone::ChannelStore(config_).list());
        // Before any run ends: an end that a killed daemon has told nobody of.
        look_for_problems_soon();
        runner_.look_behind_each_run([this] { look_for_problems_soon(); });
        // Before a run begins: what the version before knew of successes is taken over.
        look_for_overdue();
        queue_.take_over();
    }

    /// A watch each, so that a step which cannot be done keeps none of the others.
    void watch() {
        every(TICK, [this] { runner_.tick(); });
        every(TICK, [this] { schedules_.look(std::time(nullptr), standalone::machine_zone); });
        every(TICK, [this] { look_for_overdue(); });
        every(PROBLEMS_PAUSE, [this] { look_for_problems(); });
        every(TICK, [this] { queue_.look(); });
        every(TICK, [this] { sweeper_.look(); });
        every(TICK, [this] { sender_.look(std::time(nullptr)); });
        every(TICK, [this] { tests_.look(); });
        every(PRUNING_PAUSE,
              [this] { services::prune_runs(memory_.runs, store_.known(), std::time(nullptr)); });
        every(TICK, [this] {
            if (folders_) folders_->reap();
        });
    }

    void every(std::chrono::milliseconds pause, EventWatch::Action step) {
        watches_.push_back(EventWatch::every(service_.loop(), pause, std::move(step)));
    }

    void look_for_overdue() { overdue_.look(std::time(nullptr), services::overdue_grace()); }

    void look_for_problems() {
        look_for_overdue();
        alerts_.look(services::alert_receivers(), std::time(nullptr));
    }

    /// Behind a run's end, before the next one of its task can succeed.
    void look_for_problems_soon() {
        soon_ = EventWatch::after(service_.loop(), {}, [this] { look_for_problems(); });
    }

    void tell_that_it_serves() {
        services::announce("recording-backupd: listening on " +
                           services::place_of({NOTICE_PORT, TASK_PORT, METRICS_PORT}));
        // In the service's own log. Runs name these folders again, each of their own channels.
        folders_.emplace(standalone::ChannelStore(config_).list());
    }

    Database config_ = open_config(Database::Access::writing);
    services::Memory memory_ = services::open_memory();
    services::TimesWatch times_{memory_};
    const std::string recorder_ = identity();
    standalone::TaskStore store_{config_};
    services::Sweeper sweeper_{store_, memory_};
    services::HttpService service_{"retCode", services::trusted_users()};
    services::BackupRunner runner_{service_.loop(), config_, memory_.runs, recorder_};
    services::SecuredHistory history_{memory_.runs, memory_.schedules};
    services::RunQueue queue_{store_, history_, runner_, services::parallel_limit,
                              [] { return std::time(nullptr); }};
    services::ScheduleKeeper schedules_{store_, memory_.schedules, times_, queue_};
    services::AlertSender sender_{memory_.schedules, services::attempt_of};
    services::AlertTests tests_{memory_.schedules, services::recorder_name(recorder_)};
    services::OverdueKeeper overdue_{store_, memory_.schedules, times_};
    services::AlertKeeper alerts_{store_, memory_.schedules, share_of,
                                  services::recorder_name(recorder_)};
    services::MetricsReader metrics_{memory_.runs};
    std::unique_ptr<EventWatch> soon_;
    std::optional<services::UnreadableFolders> folders_;
    std::vector<std::unique_ptr<EventWatch>> watches_;
};

/// It stays open, so that the loop waits for no other service with an event. One that cannot be
/// opened now is for the log service, or is opened for the first event that it does not take.
void open_event_log() {
    try {
        standalone::event_log();
    } catch (const standalone::DatabaseError&) {
    }
}

void serve() {
    standalone::limit_waiting(OTHER_WAIT);
    open_event_log();
    Daemon().serve();
}

/// Nothing is written: the connections only read.
void tell_plan(const std::string& task_id) {
    Database config = open_config(Database::Access::reading);
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
    Database config = open_config(Database::Access::reading);
    if (task_id && !standalone::TaskStore(config).find(*task_id))
        throw std::runtime_error("there is no task " + *task_id);
    Database memory = services::open_existing_memory(Database::Access::writing);
    std::printf("%d\n", services::recheck(memory, task_id,
                                          [] { std::this_thread::sleep_for(RECHECK_REST); }));
}

/// A daemon that has never run has given nobody up.
void note_in_memory(const services::AlertTrial& trial) {
    if (!std::filesystem::exists(services::memory_database_path())) return;
    Database memory = services::open_existing_memory(Database::Access::writing);
    services::AlertOutbox outbox(memory);
    trial.note_in(outbox);
}

void send_test_alerts(const std::string& way) {
    const std::string recorder = services::recorder_name(identity());
    services::AlertTrial trial(services::test_alerts(way, recorder));
    trial.finish();
    for (const auto& [receiver, result] : trial.receivers())
        std::printf("%s\t%s\t%s\t%s\n", std::string(way_text(receiver.way)).c_str(),
                    receiver.recipient.c_str(), result->arrived ? "arrived" : "failed",
                    result->words.c_str());
    note_in_memory(trial);
}

}  // namespace

int main(int argc, char** argv) {
    return services::service_main(
        "recording-backupd",
        "Serves the backup tasks' notices and queries, and figures for monitoring systems, on " +
            services::place_of({NOTICE_PORT, TASK_PORT, METRICS_PORT}) +
            ".\nState folder: environment RECORDER_STATE, otherwise /var/lib/recorder.",
        argc, argv, serve,
        {{"--plan", "TASK", "Tell in JSON what a run of the task would do, and do nothing",
          tell_plan},
         {"--recheck", "TASK",
          "Have the next runs compare the copies that the task (or \"all\") has made with their "
          "recordings, and tell how many they are",
          recheck_copies},
         {"--alert-test", "WAY",
          "Send a test alert now by \"mail\", \"web_hook\" or \"all\" that is configured, and tell "
          "what came of it",
          send_test_alerts}});
}
