// The fields of a task record by name: one table behind database, settings text and support.
#include "platform/standalone/store/task_fields.h"

#include <algorithm>
#include <iterator>

namespace standalone {

namespace {

using Record = TDataBackupConfig;
using enum SettingsPlace;

constexpr TaskField FIELDS[] = {
    {"spareFlag", &Record::spareFlag, none, 0},
    {"enable", &Record::enable, outer, 0},
    {"taskName", &Record::taskName, outer, 0},
    {"port", &Record::port, outer, 0},
    {"serverIP", &Record::serverIP, outer, 0},
    {"destPath", &Record::destPath, outer, 0},
    {"username", &Record::username, outer, 0},
    {"password", &Record::password, outer, 0},
    {"chIdxList", &Record::chIdxList, content, 0},
    {"backupType", &Record::backupType, content, std::size(strBackupType_Arr)},
    {"backupDays", &Record::backupDays, content, 0},
    {"backupStartDay", &Record::backupStartDay, content, 0},
    {"backupEndDay", &Record::backupEndDay, content, 0},
    {"backupImmediately", &Record::backupImmediately, content, 0},
    {"scheduleType", &Record::scheduleType, outer, std::size(strScheduleType_Arr)},
    {"scheduleWeekly", &Record::scheduleWeekly, outer, 0},
    {"scheduleHour", &Record::scheduleHour, outer, 0},
    {"scheduleMin", &Record::scheduleMin, outer, 0},
    {"scheduleEveryHours", &Record::scheduleEveryHours, outer, 0},
    {"recordingType", &Record::recordingType, content, std::size(strRecType_Arr)},
    {"recordingFormat", &Record::recordingFormat, content, std::size(strRecFormat_Arr)},
    {"remoteKeepRec", &Record::remoteKeepRec, content, 0},
    {"remoteKeepRecDays", &Record::remoteKeepRecDays, content, 0},
    {"remoteOverwriteType", &Record::remoteOverwriteType, content,
     std::size(strRemoteOverwrite_Arr)},
    {"status", &Record::status, outer, std::size(strStatus_Arr)},
    {"extraValue1", &Record::extraValue1, none, 0},
    {"extraValue2", &Record::extraValue2, none, 0},
    {"startTime", &Record::startTime, outer, 0},
    {"endTime", &Record::endTime, outer, 0},
};

}  // namespace

std::span<const TaskField> task_fields() {
    return FIELDS;
}

const TaskField* find_task_field(std::string_view name) {
    const auto* found = std::ranges::find(FIELDS, name, &TaskField::name);
    return found == std::end(FIELDS) ? nullptr : found;
}

bool fits_table(const TaskField& field, long long value) {
    return field.rows == 0 || (value >= 0 && value < field.rows);
}

}  // namespace standalone
