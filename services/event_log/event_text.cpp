// The one table of event texts, and the few texts that name more than the table can.
#include "services/event_log/event_text.h"

#include <cstddef>
#include <cstdlib>
#include <ctime>

namespace services {
namespace {

constexpr unsigned BACKUP_FORCED = 0x23150003;

struct EventText {
    unsigned event_id;
    const char* text;
};

constexpr EventText EVENT_TEXTS[] = {
    {0x62040001, "Task created"},
    {0x62040002, "Task modified"},
    {0x62040003, "Task deleted"},
    {0x62040004, "Task enabled"},
    {0x62040005, "Task disabled"},
    {0x23150001, "Backup started"},
    {0x23150002, "Backup stopped"},
    {BACKUP_FORCED, "Backup forced"},
    {0x23150010, "Run started"},
    {0x23150011, "Run taken up again after a restart"},
    {0x23150012, "Run succeeded"},
    {0x23150013, "Run failed"},
    {0x23150014, "Run cancelled"},
    {0x23150015, "File not copied"},
    {0x23150016, "Connection lost"},
    {0x23150017, "Old copies removed"},
    {0x23150018, "Oldest day removed from the full share"},
    {0x23150019, "Share is full"},
    {0x23170001, "Activation refused: file explorer is off"},
};

// Places of an event's arguments.
constexpr std::size_t APPLICATION = 0;
constexpr std::size_t TASK = 1;
constexpr std::size_t REPLACED_TASK = 2;  // of a forced backup; other events have a detail there
constexpr std::size_t DETAIL = 2;

std::string argument(const standalone::Event& event, std::size_t place) {
    return place < event.arguments.size() ? event.arguments[place] : std::string();
}

std::string forced_text(const standalone::Event& event, const std::string& text) {
    const std::string replaced = argument(event, REPLACED_TASK);
    if (replaced.empty()) return text + ": " + event_task(event) + ", nothing was running";
    return text + ": " + event_task(event) + " replaced " + replaced;
}

}  // namespace

std::string event_application(const standalone::Event& event) {
    return argument(event, APPLICATION);
}

std::string event_task(const standalone::Event& event) {
    return argument(event, TASK);
}

std::string event_text(const standalone::Event& event) {
    for (const EventText& row : EVENT_TEXTS) {
        if (row.event_id != event.event_id) continue;
        if (row.event_id == BACKUP_FORCED) return forced_text(event, row.text);
        const std::string detail = argument(event, DETAIL);
        return detail.empty() ? row.text : std::string(row.text) + ": " + detail;
    }
    return "Event 0x" + event_code(event);
}

std::string event_code(const standalone::Event& event) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08X", event.event_id);
    return digits;
}

std::string event_time(const standalone::Event& event) {
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

}  // namespace services
