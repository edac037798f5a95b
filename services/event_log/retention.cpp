// Removes events that are older than the configured days.
#include "services/event_log/retention.h"

#include <cstdio>
#include <filesystem>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/utilities.h"
#include "services/configured.h"

namespace services {
namespace {

using namespace std::chrono_literals;

constexpr long long DAY_MS = 24LL * 60 * 60 * 1000;
constexpr auto PAUSE = 20ms;

long long oldest_kept_ms() {
    return static_cast<long long>(current_time_stamp()) - keep_days() * DAY_MS;
}

}  // namespace

int keep_days() {
    return configured_number("log", "keep_days", DEFAULT_KEEP_DAYS);
}

void remove_older_events(standalone::EventStore& store, long long oldest_ms,
                         const std::function<bool()>& go_on) {
    while (store.remove_older(oldest_ms, REMOVED_AT_ONCE) == REMOVED_AT_ONCE)
        if (!go_on()) return;
}

Retention::Retention() : thread_([this](const std::stop_token& stop) { work(stop); }) {}

void Retention::work(const std::stop_token& stop) {
    do {
        try {
            remove_old(stop);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "old events cannot be removed: %s\n", error.what());
        }
    } while (!pause(stop, 24h));
}

void Retention::remove_old(const std::stop_token& stop) {
    const std::string path = standalone::event_database_path();
    if (!std::filesystem::exists(path)) return;
    standalone::Database database(path, standalone::Database::Access::writing);
    standalone::EventStore store(database);
    remove_older_events(store, oldest_kept_ms(), [&] { return !pause(stop, PAUSE); });
}

bool Retention::pause(const std::stop_token& stop, std::chrono::milliseconds length) {
    std::unique_lock lock(mutex_);
    stopped_.wait_for(lock, stop, length, [] { return false; });
    return stop.stop_requested();
}

}  // namespace services
