// POST schedule/preview: when a schedule would come due.
#include "console/preview_route.h"

#include <ctime>

#include "platform/standalone/store/schedule.h"

namespace console {

namespace {

constexpr std::size_t PREVIEWED = 5;
constexpr int MOST_HOURS = 1'000'000;

TDataBackupConfig schedule_in(const Body& body) {
    TDataBackupConfig task;
    task.enable = true;
    task.scheduleType = table_index(strScheduleType_Arr, body.text("scheduleType", 16));
    if (task.scheduleType < 0)
        throw bad_field("scheduleType", "This has to be \"daily\", \"weekly\" or \"hour\".");
    task.scheduleHour = body.number("scheduleHour", 0, 23);
    task.scheduleMin = body.number("scheduleMin", 0, 59);
    task.scheduleWeekly = body.number("scheduleWeekly", 0, 7);
    task.scheduleEveryHours = body.number("scheduleEveryHours", 0, MOST_HOURS);
    return task;
}

}  // namespace

Reply preview_schedule(const Request& request) {
    const TDataBackupConfig task = schedule_in(Body(request.body));
    // What the daemon does of a task that it sees now for the first time, and each time it is due.
    const auto look = [&task](const std::optional<standalone::NextRun>& next, long long now) {
        return standalone::look_at_schedule(task, next, now, standalone::machine_zone).next;
    };
    Json times = Json::array();
    auto next = look({}, std::time(nullptr));
    for (; next && times.size() < PREVIEWED; next = look(next, next->due)) times.append(next->due);
    Json object = Json::object();
    object.add("times", times);
    return json_reply(object);
}

}  // namespace console
