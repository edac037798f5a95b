// A valid task request body that tests bend: members replaced, removed or added.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

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
