// A task with every member set: the body of a request, and a record.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "backup/task_record.h"

/// In place of a member's value: leave the member out.
inline constexpr char ABSENT[] = "";

/// The body of a complete request, as JSON text.
/// @param changes member name to JSON value, or to ABSENT
inline std::string task_body(std::map<std::string, std::string> changes = {}) {
    std::vector<std::pair<std::string, std::string>> members = {
        {"taskName", R"("Night copy")"},
        {"serverIP", R"("192.0.2.7")"},
        {"port", "445"},
        {"username", R"("backup")"},
        {"password", R"("p@ss word")"},
        {"destPath", R"("/share/a")"},
        {"chIdxList", "[1, 3, 4]"},
        {"backupType", R"("BackupByTimeRange")"},
        {"backupDays", "7"},
        {"backupStartDay", "1709251200"},
        {"backupEndDay", "1709337600"},
        {"backupImmediately", "false"},
        {"scheduleType", R"("weekly")"},
        {"scheduleWeekly", "3"},
        {"scheduleHour", "2"},
        {"scheduleMin", "30"},
        {"scheduleEveryHours", "6"},
        {"recordingType", R"("recording_and_alarm")"},
        {"recordingFormat", R"("ostra")"},
        {"remoteKeepRec", "true"},
        {"remoteKeepRecDays", "30"},
        {"remoteOverwriteType", R"("overwrite")"},
    };
    for (auto& [name, value] : members)
        if (auto change = changes.extract(name)) value = change.mapped();
    for (const auto& [name, value] : changes) members.emplace_back(name, value);

    std::string text;
    for (const auto& [name, value] : members)
        if (value != ABSENT) text += (text.empty() ? "{\"" : ", \"") + name + "\": " + value;
    return text + "}";
}

/// A record, of a task that has run.
inline TDataBackupConfig night_copy(int status = TASK_SUCCESS) {
    TDataBackupConfig task;
    task.enable = true;
    task.taskID = "12";
    task.taskName = "Night copy";
    task.port = 445;
    task.serverIP = "192.0.2.7";
    task.destPath = "share";
    task.username = "backup";
    task.password = "p@ss word";
    task.chIdxList = "1,3,4";
    task.backupType = 1;
    task.backupDays = 7;
    task.backupStartDay = "2024-03-01";
    task.backupEndDay = "2024-03-02";
    task.scheduleType = 1;
    task.scheduleWeekly = 3;
    task.scheduleHour = 2;
    task.scheduleMin = 30;
    task.scheduleEveryHours = 6;
    task.recordingType = 2;
    task.recordingFormat = 1;
    task.remoteKeepRec = true;
    task.remoteKeepRecDays = 30;
    task.remoteOverwriteType = 1;
    task.status = status;
    task.startTime = "1700000000";
    task.endTime = "1700000100";
    return task;
}
