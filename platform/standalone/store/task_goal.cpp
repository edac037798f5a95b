// What a task is to keep safe and where, as a text: a success stands for a task with the same text.
#include "platform/standalone/store/task_goal.h"

#include <algorithm>

namespace standalone {

namespace {

bool has_retention(const TDataBackupConfig& task) {
    return task.remoteKeepRec && task.remoteKeepRecDays >= 0;
}

/// What retention would remove at once is not copied, so it may make a selection smaller.
std::string days_text(const TDataBackupConfig& task) {
    if (task.backupType == BACKUP_BY_LAST_DAY)
        return std::to_string(has_retention(task)
                                  ? std::min(task.backupDays, task.remoteKeepRecDays)
                                  : task.backupDays);
    const std::string range = task.backupStartDay + " to " + task.backupEndDay;
    return has_retention(task) ? range + " of " + std::to_string(task.remoteKeepRecDays) : range;
}

}  // namespace

std::string task_goal(const TDataBackupConfig& task) {
    std::string text = std::to_string(task.backupType);
    for (const std::string& part :
         {days_text(task), std::to_string(task.recordingType), std::to_string(task.recordingFormat),
          task.chIdxList, std::to_string(task.port), task.serverIP, task.destPath})
        text += '\n' + part;
    return text;
}

}  // namespace standalone
