// The one table of event texts, and the few texts that name more than the table can.
#include "platform/standalone/store/event_text.h"

#include <cstddef>
#include <cstdlib>
#include <ctime>

#include "platform/event_ids.h"

namespace standalone {
namespace {

struct EventText {
    events::Id event_id;
    const char* text;
};

constexpr EventText EVENT_TEXTS[] = {
    {events::TASK_CREATED, "Task created"},
    {events::TASK_MODIFIED, "Task modified"},
    {events::TASK_DELETED, "Task deleted"},
    {events::TASK_ENABLED, "Task enabled"},
    {events::TASK_DISABLED, "Task disabled"},
    {events::BACKUP_STARTED, "Backup started"},
    {events::BACKUP_STOPPED, "Backup stopped"},
    {events::BACKUP_FORCED, "Backup forced"},
    {events::RUN_STARTED, "Run started"},
    {events::RUN_RESUMED, "Interrupted run taken up again"},
    {events::RUN_SUCCEEDED, "Run succeeded"},
    {events::RUN_FAILED, "Run failed"},
    {events::RUN_CANCELLED, "Run cancelled"},
    {events::FILE_NOT_COPIED, "File not copied"},
    {events::CONNECTION_LOST, "Connection lost"},
    {events::RETENTION_PASS, "Old copies removed"},
    {events::ROOM_MADE, "Oldest day removed from the full share"},
    {events::SHARE_FULL, "Share is full"},
    {events::OWN_FOLDER_MADE, "Own folder made beside another recorder's copies"},
    {events::WILL_NOT_FIT, "Run will not fit on the share"},
    {events::COPY_NOT_REMOVED, "Copy not removed"},
    {events::COPY_SPOILT, "Copy is not as it was made"},
    {events::SIGN_IN_FAILED, "Sign-in failed"},
    {events::SIGN_IN_HELD_UP, "Sign-in failed too often; the next attempt has to wait"},
    {events::ALERTS_CHANGED, "Alerts changed"},
    {events::ACTIVATION_REFUSED, "Activation refused: file explorer is off"},
};

// Places of an event's arguments.
constexpr std::size_t APPLICATION = 0;
constexpr std::size_t TASK = 1;
constexpr std::size_t REPLACED_TASK = 2;  // of a forced backup; other events have a detail there
constexpr std::size_t DETAIL = 2;

std::string argument(const Event& event, std::size_t place) {
    return place < event.arguments.size() ? event.arguments[place] : std::string();
}

std::string forced_text(const Event& event, const std::string& text) {
    const std::string replaced = argument(event, REPLACED_TASK);
    if (replaced.empty()) return text + ": " + event_task(event) + ", nothing was running";
    return text + ": " + event_task(event) + " replaced " + replaced;
}

}  // namespace

std::string event_application(const Event& event) {
    return argument(event, APPLICATION);
}

std::string event_task(const Event& event) {
    return argument(event, TASK);
}

std::string event_text(const Event& event) {
    for (const EventText& row : EVENT_TEXTS) {
        if (row.event_id != event.event_id) continue;
        if (row.event_id == events::BACKUP_FORCED) return forced_text(event, row.text);
        const std::string detail = argument(event, DETAIL);
        return detail.empty() ? row.text : std::string(row.text) + ": " + detail;
    }
    return "Event 0x" + event_code(event);
}

std::string event_code(const Event& event) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", event.event_id);
    return digits;
}

std::string event_time(const Event& event) {
    const auto seconds = static_cast<std::time_t>(event.time_ms / 1000);
    std::tm local = {};
    if (!localtime_r(&seconds, &local)) return "";
    char day_and_time[64];
    std::strftime(day_and_time, sizeof day_and_time, "%Y-%m-%dT%H:%M:%S", &local);
    const long minutes = std::labs(local.tm_gmtoff) / 60;
    char offset[32];
    std::snprintf(offset, sizeof offset, "%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+',
                  minutes / 60, minutes % 60);
    return std::string(day_and_time) + offset;
}

}  // namespace standalone
