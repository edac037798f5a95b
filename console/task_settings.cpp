// A task's settings as the prescribed list has them.
#include "console/task_settings.h"

#include <cstdlib>
#include <string_view>

#include "console/json.h"
#include "platform/standalone/store/calendar.h"

namespace console {

namespace {

constexpr std::size_t USUAL_LENGTH = 700;  // bytes

/// "1,3,4" as numbers.
Json channels_of(std::string_view list) {
    Json channels = Json::array();
    while (!list.empty()) {
        const std::size_t comma = list.find(',');
        channels.append(std::strtol(std::string(list.substr(0, comma)).c_str(), nullptr, 10));
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    }
    return channels;
}

/// The day's first second; -1 without a day.
long long start_of(const std::string& day) {
    if (day.empty()) return -1;
    return standalone::instant_of(standalone::day_number(day), 0, 0, standalone::machine_zone);
}

void add_selection(Json& settings, const TDataBackupConfig& task) {
    settings.add("chIdxList", channels_of(task.chIdxList));
    settings.add("backupType", table_text(strBackupType_Arr, task.backupType));
    settings.add("backupDays", task.backupDays);
    settings.add("backupStartDay", task.backupStartDay);
    settings.add("backupEndDay", task.backupEndDay);
    settings.add("backupStartTimeStamp", start_of(task.backupStartDay));
    settings.add("backupEndTimeStamp", start_of(task.backupEndDay));
    settings.add("recordingType", table_text(strRecType_Arr, task.recordingType));
    settings.add("recordingFormat", table_text(strRecFormat_Arr, task.recordingFormat));
}

void add_schedule(Json& settings, const TDataBackupConfig& task) {
    settings.add("backupImmediately", task.backupImmediately ? 1 : 0);
    settings.add("scheduleType", table_text(strScheduleType_Arr, task.scheduleType));
    settings.add("scheduleWeekly", task.scheduleWeekly == 0 ? 7 : task.scheduleWeekly);
    settings.add("scheduleHour", task.scheduleHour);
    settings.add("scheduleMin", task.scheduleMin);
    settings.add("scheduleEveryHours", task.scheduleEveryHours);
}

}  // namespace

Json settings_of(const TDataBackupConfig& task) {
    Json settings = Json::object(USUAL_LENGTH);
    settings.add("taskID", task.taskID);
    settings.add("taskName", task.taskName);
    settings.add("serverIP", task.serverIP);
    settings.add("port", task.port);
    settings.add("username", task.username);
    settings.add("destPath", task.destPath);
    add_selection(settings, task);
    add_schedule(settings, task);
    settings.add("remoteKeepRec", task.remoteKeepRec ? 1 : 0);
    settings.add("remoteKeepRecDays", task.remoteKeepRecDays);
    settings.add("remoteOverwriteType",
                 table_text(strRemoteOverwrite_Arr, task.remoteOverwriteType));
    return settings;
}

}  // namespace console
