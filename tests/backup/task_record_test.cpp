// Tests of the task record, its tables and the placeholder channel.
#include "backup/task_record.h"

#include <gtest/gtest.h>

namespace {

TEST(TaskRecord, DefaultRecordHasEmptyTextsAndIsDisabledWithStatusSuccess) {
    const TDataBackupConfig task;
    for (const std::string& text :
         {task.taskID, task.taskName, task.serverIP, task.destPath, task.username, task.password,
          task.chIdxList, task.backupStartDay, task.backupEndDay, task.startTime, task.endTime})
        EXPECT_EQ(text, "");
    EXPECT_FALSE(task.enable);
    EXPECT_EQ(task.status, TASK_SUCCESS);
    EXPECT_EQ(strStatus_Arr[task.status], "success");
}

TEST(TaskRecord, DefaultRecordHasZeroNumbersAndClearFlags) {
    const TDataBackupConfig task;
    for (const int number :
         {task.port, task.backupType, task.backupDays, task.scheduleType, task.scheduleWeekly,
          task.scheduleHour, task.scheduleMin, task.scheduleEveryHours, task.recordingType,
          task.recordingFormat, task.remoteKeepRecDays, task.remoteOverwriteType, task.status})
        EXPECT_EQ(number, 0);
    for (const bool flag :
         {task.spareFlag, task.enable, task.backupImmediately, task.remoteKeepRec})
        EXPECT_FALSE(flag);
    EXPECT_EQ(task.extraValue1, 0.0F);
    EXPECT_EQ(task.extraValue2, 0.0F);
}

TEST(TaskRecord, ChangingTheTextsOfACopyLeavesTheSourceAlone) {
    std::string TDataBackupConfig::*const texts[] = {
        &TDataBackupConfig::taskID,       &TDataBackupConfig::taskName,
        &TDataBackupConfig::serverIP,     &TDataBackupConfig::destPath,
        &TDataBackupConfig::username,     &TDataBackupConfig::password,
        &TDataBackupConfig::chIdxList,    &TDataBackupConfig::backupStartDay,
        &TDataBackupConfig::backupEndDay, &TDataBackupConfig::startTime,
        &TDataBackupConfig::endTime,
    };
    TDataBackupConfig source;
    for (const auto text : texts) source.*text = "source";
    TDataBackupConfig copy(source);
    for (const auto text : texts) {
        EXPECT_EQ(copy.*text, "source");
        (copy.*text)[0] = 'S';
        EXPECT_EQ(source.*text, "source");
    }
}

template <std::size_t N>
std::vector<std::string_view> rows(const std::string_view (&table)[N]) {
    return {table, table + N};
}

using Rows = std::vector<std::string_view>;

TEST(TaskTables, HoldTheWireTextsInIndexOrder) {
    EXPECT_EQ(rows(strBackupType_Arr), (Rows{"BackupByLastDay", "BackupByTimeRange"}));
    EXPECT_EQ(rows(strScheduleType_Arr), (Rows{"daily", "weekly", "hour"}));
    EXPECT_EQ(rows(strRecType_Arr), (Rows{"recording", "alarm", "recording_and_alarm"}));
    EXPECT_EQ(rows(strRecFormat_Arr), (Rows{"mp4", "ostra"}));
    EXPECT_EQ(rows(strRemoteOverwrite_Arr), (Rows{"stop_overwrite", "overwrite"}));
    EXPECT_EQ(rows(strStatus_Arr), (Rows{"success", "new", "wait", "prepare_start", "running",
                                         "cancel", "failed", "prepare_stop"}));
}

TEST(TaskTables, IndexOutsideTheTableGivesAnEmptyText) {
    for (const int index : {-1, 8, 99, INT32_MIN, INT32_MAX})
        EXPECT_EQ(table_text(strStatus_Arr, index), "") << index;
    EXPECT_EQ(table_text(strStatus_Arr, 0), "success");
    EXPECT_EQ(table_text(strStatus_Arr, 7), "prepare_stop");
}

TEST(TaskTables, TextIsFoundExactlyOrNotAtAll) {
    EXPECT_EQ(table_index(strScheduleType_Arr, "hour"), 2);
    for (const char* text : {"Daily", "daily ", "dail", "", "month"})
        EXPECT_EQ(table_index(strScheduleType_Arr, text), -1) << text;
}

TEST(PlaceholderChannel, IsChannel9999With32NinesAndZeroesBehind) {
    EXPECT_EQ(default_ch_sid.channel, 9999);
    EXPECT_EQ(std::string(default_ch_sid.sid), std::string(32, '9'));
    for (std::size_t i = 32; i < sizeof default_ch_sid.sid; ++i)
        EXPECT_EQ(default_ch_sid.sid[i], '\0');
}

}  // namespace
