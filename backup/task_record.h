// The task record, the tables that give its numbers their wire texts, and the placeholder channel.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// One backup task. A plain value: copies share nothing.
struct TDataBackupConfig {
    bool spareFlag = false;          ///< carried with the record; never set from input nor printed
    bool enable = false;             ///< the task is enabled
    std::string taskID;              ///< decimal identifier, given by the configuration store
    std::string taskName;            ///< name shown to the user
    int port = 0;                    ///< TCP port of the remote server
    std::string serverIP;            ///< address of the remote server
    std::string destPath;            ///< share and folder on the remote server
    std::string username;            ///< account on the remote server
    std::string password;            ///< its password, in the open
    std::string chIdxList;           ///< channel indexes in decimal, joined by "," ("1,3,4")
    int backupType = 0;              ///< index into strBackupType_Arr
    int backupDays = 0;              ///< past days to back up, 0 to 99
    std::string backupStartDay;      ///< first day of a time range, local date "2024-03-01", or ""
    std::string backupEndDay;        ///< last day of a time range, or ""
    bool backupImmediately = false;  ///< run once now instead of on a schedule
    int scheduleType = 0;            ///< index into strScheduleType_Arr
    int scheduleWeekly = 0;          ///< day of the week; 0 and 7 are Sunday
    int scheduleHour = 0;            ///< hour of the run, 0 to 23
    int scheduleMin = 0;             ///< minute of the run, 0 to 59
    int scheduleEveryHours = 0;      ///< hours between runs
    int recordingType = 0;           ///< index into strRecType_Arr
    int recordingFormat = 0;         ///< index into strRecFormat_Arr
    bool remoteKeepRec = false;      ///< remove old copies from the remote side
    int remoteKeepRecDays = 0;       ///< days that copies are kept there, 0 to 99
    int remoteOverwriteType = 0;     ///< index into strRemoteOverwrite_Arr
    int status = 0;                  ///< index into strStatus_Arr
    float extraValue1 = 0.0F;        ///< carried with the record
    float extraValue2 = 0.0F;        ///< carried with the record
    std::string startTime;  ///< when the last run began: decimal seconds since the epoch, or ""
    std::string endTime;    ///< when the last run ended, in the same form
};

// The tables below have internal linkage on purpose: every unit holds its own constant copy. The
// index is what is stored, the text is what clients send and receive.

static constexpr std::string_view strBackupType_Arr[] = {"BackupByLastDay", "BackupByTimeRange"};
static constexpr std::string_view strScheduleType_Arr[] = {"daily", "weekly", "hour"};
static constexpr std::string_view strRecType_Arr[] = {"recording", "alarm", "recording_and_alarm"};
static constexpr std::string_view strRecFormat_Arr[] = {"mp4", "ostra"};
static constexpr std::string_view strRemoteOverwrite_Arr[] = {"stop_overwrite", "overwrite"};
static constexpr std::string_view strStatus_Arr[] = {"success", "new",    "wait",   "prepare_start",
                                                     "running", "cancel", "failed", "prepare_stop"};

// The tables' rows by name, in the tables' order.

enum BackupType { BACKUP_BY_LAST_DAY, BACKUP_BY_TIME_RANGE };
enum ScheduleType { SCHEDULE_DAILY, SCHEDULE_WEEKLY, SCHEDULE_HOURS };
enum RecordingType { REC_NORMAL, REC_ALARM, REC_NORMAL_AND_ALARM };
enum RecordingFormat { FORMAT_MP4, FORMAT_WITH_SIDE_FILE };
enum RemoteOverwrite { STOP_WHEN_FULL, OVERWRITE_WHEN_FULL };
enum TaskStatus {
    TASK_SUCCESS,
    TASK_NEW,
    TASK_WAIT,
    TASK_PREPARE_START,
    TASK_RUNNING,
    TASK_CANCEL,
    TASK_FAILED,
    TASK_PREPARE_STOP,
};

/// The text of a table at `index`; an empty text for an index outside the table.
template <std::size_t N>
constexpr std::string_view table_text(const std::string_view (&table)[N], int index) {
    return index >= 0 && static_cast<std::size_t>(index) < N ? table[index] : std::string_view();
}

/// The index of `text` in a table, compared exactly; -1 when no row equals it.
template <std::size_t N>
int table_index(const std::string_view (&table)[N], std::string_view text) {
    for (std::size_t row = 0; row < N; ++row)
        if (table[row] == text) return static_cast<int>(row);
    return -1;
}

/// Names a channel by its number and session text.
struct TChannelSid {
    int channel;
    char sid[64];
};

/// The placeholder channel. No operation reads it.
static const TChannelSid default_ch_sid = {9999, "99999999999999999999999999999999"};
