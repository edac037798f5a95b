// A task with every field set, for tests that print or store one.
#pragma once

#include "backup/task_record.h"

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
