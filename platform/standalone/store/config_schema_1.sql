-- First schema of the configuration database: tasks, their queue, channels.
-- Columns of "task" are named as the fields of TDataBackupConfig.
CREATE TABLE task (
    taskID INTEGER PRIMARY KEY AUTOINCREMENT,
    spareFlag INTEGER NOT NULL,
    enable INTEGER NOT NULL,
    taskName TEXT NOT NULL,
    port INTEGER NOT NULL,
    serverIP TEXT NOT NULL,
    destPath TEXT NOT NULL,
    username TEXT NOT NULL,
    password TEXT NOT NULL,
    chIdxList TEXT NOT NULL,
    backupType INTEGER NOT NULL,
    backupDays INTEGER NOT NULL,
    backupStartDay TEXT NOT NULL,
    backupEndDay TEXT NOT NULL,
    backupImmediately INTEGER NOT NULL,
    scheduleType INTEGER NOT NULL,
    scheduleWeekly INTEGER NOT NULL,
    scheduleHour INTEGER NOT NULL,
    scheduleMin INTEGER NOT NULL,
    scheduleEveryHours INTEGER NOT NULL,
    recordingType INTEGER NOT NULL,
    recordingFormat INTEGER NOT NULL,
    remoteKeepRec INTEGER NOT NULL,
    remoteKeepRecDays INTEGER NOT NULL,
    remoteOverwriteType INTEGER NOT NULL,
    status INTEGER NOT NULL,
    extraValue1 REAL NOT NULL,
    extraValue2 REAL NOT NULL,
    startTime TEXT NOT NULL,
    endTime TEXT NOT NULL
);

CREATE TABLE queue (
    taskID INTEGER PRIMARY KEY REFERENCES task ON DELETE CASCADE,
    place INTEGER NOT NULL UNIQUE
);

-- A removed channel keeps its row for as long as its recordings are of interest, so several rows
-- may have had one index, but at most one has it now.
CREATE TABLE channel (
    id INTEGER PRIMARY KEY,
    channel_index INTEGER NOT NULL CHECK (channel_index BETWEEN 0 AND 127),
    guid TEXT NOT NULL UNIQUE,
    ip TEXT NOT NULL,
    name TEXT NOT NULL,
    brand TEXT NOT NULL,
    model TEXT NOT NULL,
    streams INTEGER NOT NULL CHECK (streams BETWEEN 0 AND 16),
    recordings TEXT NOT NULL,
    pinned_state TEXT,
    removed INTEGER NOT NULL DEFAULT 0
);
CREATE UNIQUE INDEX live_channel ON channel (channel_index) WHERE removed = 0;
