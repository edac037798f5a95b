// GET channel/<guid>/days: what a camera has of each day, and which tasks have copied it.
#include "console/day_route.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/recording_folder.h"

namespace console {

namespace {

using standalone::Channel;
using standalone::Statement;

struct Day {
    bool recordings = false;
    bool alarms = false;
    std::vector<std::string> copied_by{};  ///< tasks
};

using Days = std::map<std::string, Day>;

Channel channel_of(const std::string& guid) {
    const auto channels = standalone::ChannelStore(standalone::config_for_reading()).list();
    const auto found = std::ranges::find(channels, guid, &Channel::guid);
    if (found == channels.end()) throw not_found("There is no such camera.");
    return *found;
}

/// "2026-11".
std::string month_of(const Request& request) {
    std::string month = request.parameter("month");
    constexpr std::string_view FORM = "0000-00";
    const auto fits = [](unsigned char byte, char form) {
        return form == '0' ? std::isdigit(byte) != 0 : byte == '-';
    };
    if (!std::ranges::equal(month, FORM, fits))
        throw bad_field("month", "This has to be a month such as 2026-11.");
    return month;
}

void add_recordings(Days& days, const std::string& folder, const std::string& month) {
    for (const std::string& day :
         standalone::recording_days(folder, month + "-01", month + "-31")) {
        const bool normal =
            !standalone::recordings_of_day(folder, day, {.normal = true, .alarm = false}).empty();
        const bool alarm =
            !standalone::recordings_of_day(folder, day, {.normal = false, .alarm = true}).empty();
        if (normal || alarm) days[day] = {.recordings = normal, .alarms = alarm};
    }
}

/// Of each destination that has a folder of the camera's, the copies of the month: their paths lie
/// in one range of the index.
void add_copies(Days& days, const std::string& guid, const std::string& month) {
    standalone::Database memory = standalone::open_backup_memory();
    Statement row = memory.prepare(
        "SELECT DISTINCT day, taskID FROM camera_folder AS camera JOIN copied_file AS copy "
        "ON copy.destination = camera.destination "
        "AND copy.path >= camera.folder || '/' || ?2 || '-' "
        "AND copy.path < camera.folder || '/' || ?2 || '.' "
        "WHERE guid = ?1 AND removed = 0 ORDER BY day, taskID");
    row.bind(1, guid).bind(2, month);
    while (row.step()) days[row.text(0)].copied_by.push_back(row.text(1));
}

Json object_of(const std::string& name, const Day& day) {
    Json tasks = Json::array();
    for (const std::string& task : day.copied_by) tasks.append(task);
    Json object = Json::object();
    object.add("day", name);
    object.add("recordings", day.recordings);
    object.add("alarms", day.alarms);
    object.add("copied_by", tasks);
    return object;
}

}  // namespace

Reply get_days(const Request& request) {
    const Channel channel = channel_of(request.segments[1]);
    const std::string month = month_of(request);
    Days days;
    try {
        add_recordings(days, channel.recordings, month);
    } catch (const standalone::UnreadableFolder& error) {
        throw Refusal{.status = 422, .code = "recordings_unreadable", .text = error.what()};
    }
    add_copies(days, channel.guid, month);
    Json array = Json::array();
    for (const auto& [name, day] : days) array.append(object_of(name, day));
    Json object = Json::object();
    object.add("days", array);
    return json_reply(object);
}

}  // namespace console
