// Removes events that are older than the configured days.
#include "services/event_log/retention.h"

#include <charconv>
#include <cstdio>
#include <filesystem>

#include "platform/nvrcfg.h"
#include "platform/standalone/store/database.h"
#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/utilities.h"

namespace services {
namespace {

using namespace std::chrono_literals;

constexpr long long DAY_MS = 24LL * 60 * 60 * 1000;
constexpr int BATCH = 500;
constexpr auto PAUSE = 20ms;

long long oldest_kept_ms() {
    return static_cast<long long>(current_time_stamp()) - keep_days() * DAY_MS;
}

}  // namespace

int parse_keep_days(const std::string& text) {
    int days = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, days);
    return error == std::errc() && stop == end && days >= 1 ? days : DEFAULT_KEEP_DAYS;
}

int keep_days() {
    std::string text;
    int reason = 0;
    if (__nvrcfg_get_key_value("retention", __LINE__, "log", "keep_days", text, &reason) != 0)
        return DEFAULT_KEEP_DAYS;
    return parse_keep_days(text);
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
    const long long oldest = oldest_kept_ms();
    while (store.remove_older(oldest, BATCH) == BATCH)
        if (pause(stop, PAUSE)) return;
}

bool Retention::pause(const std::stop_token& stop, std::chrono::milliseconds length) {
    std::unique_lock lock(mutex_);
    stopped_.wait_for(lock, stop, length, [] { return false; });
    return stop.stop_requested();
}

}  // namespace services
