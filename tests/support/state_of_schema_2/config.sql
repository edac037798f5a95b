-- The configuration database of a state that the version with schema 2 left amid a run.
PRAGMA user_version = 2;

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
, parallel INTEGER NOT NULL DEFAULT 0);

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

CREATE TABLE next_run (
    taskID INTEGER PRIMARY KEY REFERENCES task ON DELETE CASCADE,
    rule TEXT NOT NULL,
    due INTEGER NOT NULL
);

CREATE TABLE run_progress (
    taskID INTEGER PRIMARY KEY REFERENCES task ON DELETE CASCADE,
    bytes_planned INTEGER NOT NULL,
    bytes_done INTEGER NOT NULL,
    percent REAL NOT NULL,
    rate REAL NOT NULL,
    files_done INTEGER NOT NULL,
    files_left INTEGER NOT NULL,
    files_failed INTEGER NOT NULL,
    seconds_left INTEGER,
    message TEXT NOT NULL,
    time_ms INTEGER NOT NULL
);

CREATE TABLE copied_file (
    destination TEXT NOT NULL,
    path TEXT NOT NULL,
    taskID INTEGER NOT NULL,
    day TEXT NOT NULL,
    size INTEGER NOT NULL,
    modified_ns INTEGER NOT NULL,
    sha256 TEXT NOT NULL,
    side_file INTEGER NOT NULL,
    removed INTEGER NOT NULL DEFAULT 0,
    PRIMARY KEY (destination, path)
) WITHOUT ROWID;

CREATE TABLE checkpoint (
    taskID INTEGER NOT NULL REFERENCES task ON DELETE CASCADE,
    destination TEXT NOT NULL,
    path TEXT NOT NULL,
    temporary TEXT NOT NULL,
    offset INTEGER NOT NULL,
    sha256 TEXT NOT NULL,
    PRIMARY KEY (taskID, destination, path)
) WITHOUT ROWID;

INSERT INTO task (
    taskID, spareFlag, enable, taskName, port, serverIP, destPath, username, password, chIdxList,
    backupType, backupDays, backupStartDay, backupEndDay, backupImmediately, scheduleType,
    scheduleWeekly, scheduleHour, scheduleMin, scheduleEveryHours, recordingType, recordingFormat,
    remoteKeepRec, remoteKeepRecDays, remoteOverwriteType, status, extraValue1, extraValue2,
    startTime, endTime
) VALUES (
    1, 0, 1, 'Overwrites', 44871, '127.0.0.1', '/backup/recorder', 'backup', 'secret of the share',
    '1', 0, 30, '', '', 0, 0, 0, 3, 30, 0, 2, 0, 1, 20, 1, 0, 0.0, 0.0, '1795290678', '1795290678'
);
INSERT INTO task (
    taskID, spareFlag, enable, taskName, port, serverIP, destPath, username, password, chIdxList,
    backupType, backupDays, backupStartDay, backupEndDay, backupImmediately, scheduleType,
    scheduleWeekly, scheduleHour, scheduleMin, scheduleEveryHours, recordingType, recordingFormat,
    remoteKeepRec, remoteKeepRecDays, remoteOverwriteType, status, extraValue1, extraValue2,
    startTime, endTime
) VALUES (
    3, 0, 1, 'Runs', 43009, '127.0.0.1', '/backup/recorder', 'backup', 'secret of the share', '2',
    0, 30, '', '', 0, 1, 2, 4, 0, 0, 2, 0, 0, 0, 0, 4, 0.0, 0.0, '1795290679', ''
);
INSERT INTO task (
    taskID, spareFlag, enable, taskName, port, serverIP, destPath, username, password, chIdxList,
    backupType, backupDays, backupStartDay, backupEndDay, backupImmediately, scheduleType,
    scheduleWeekly, scheduleHour, scheduleMin, scheduleEveryHours, recordingType, recordingFormat,
    remoteKeepRec, remoteKeepRecDays, remoteOverwriteType, status, extraValue1, extraValue2,
    startTime, endTime
) VALUES (
    4, 0, 1, 'Waits für immer', 43009, '127.0.0.1', '/backup/recorder', 'backup',
    'secret of the share', '2', 0, 30, '', '', 0, 2, 0, 1, 0, 6, 2, 0, 0, 0, 0, 2, 0.0, 0.0, '', ''
);
INSERT INTO queue (
    taskID, place, parallel
) VALUES (
    4, 1, 0
);
INSERT INTO channel (
    id, channel_index, guid, ip, name, brand, model, streams, recordings, pinned_state, removed
) VALUES (
    1, 0, 'guid-0', '192.0.2.1', 'Camera 0', 'B', 'M', 1, '/storage/0', NULL, 1
);
INSERT INTO channel (
    id, channel_index, guid, ip, name, brand, model, streams, recordings, pinned_state, removed
) VALUES (
    2, 1, 'guid-1', '192.0.2.1', 'Front', 'B', 'M', 1, '/storage/1', NULL, 0
);
INSERT INTO channel (
    id, channel_index, guid, ip, name, brand, model, streams, recordings, pinned_state, removed
) VALUES (
    3, 2, 'guid-2', '192.0.2.1', 'Front door', 'B', 'M', 1, '/storage/2', NULL, 0
);
INSERT INTO channel (
    id, channel_index, guid, ip, name, brand, model, streams, recordings, pinned_state, removed
) VALUES (
    4, 3, 'guid-3', '192.0.2.1', 'Tür 100%_a', 'B', 'M', 1, '/storage/3', '0 ', 0
);
INSERT INTO next_run (
    taskID, rule, due
) VALUES (
    1, '0 0 3 30 0 ', 1795314600
);
INSERT INTO next_run (
    taskID, rule, due
) VALUES (
    3, '1 2 4 0 0 ', 1795489200
);
INSERT INTO next_run (
    taskID, rule, due
) VALUES (
    4, '2 0 1 0 6 ', 1795305600
);
INSERT INTO run_progress (
    taskID, bytes_planned, bytes_done, percent, rate, files_done, files_left, files_failed,
    seconds_left, message, time_ms
) VALUES (
    1, 12582912, 12582912, 100.0, 0.0, 3, 0, 0, 0, '', 1795290678000
);
INSERT INTO run_progress (
    taskID, bytes_planned, bytes_done, percent, rate, files_done, files_left, files_failed,
    seconds_left, message, time_ms
) VALUES (
    3, 31457280, 8388608, 26.6, 0.0, 0, 1, 0, NULL, '', 1795290686000
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:39127/backup/a/b', 'Front/2026-11-19/01-00-00.mp4', 2, '2026-11-19', 4194304,
    1795290678724212523, '6e23ba6caecc076dde460d4d1a9355e5823367f7e823252a3508b0a226f03af5', 1, 0
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:39127/backup/a/b', 'Front/2026-11-20/01-00-00.mp4', 2, '2026-11-20', 4194304,
    1795290678710393338, '4e450fd154f3d5c8c0c8ce46293e023dad4846ebb48a5298fa7bdc309f3aaf12', 1, 0
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:39127/backup/a/b', 'Front/2026-11-21/01-00-00.mp4', 2, '2026-11-21', 4194304,
    1795290678698038343, '4463745f11000b562e148007a9b1fd0978ba0f07bc2f42e9d6a6ead94ac5d408', 1, 0
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:39127/backup/a/b', 'Tür 100%_a/2026-11-20/02-00-00.mp4', 2, '2026-11-20', 0,
    1795290678728394109, 'e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855', 1, 0
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:39127/backup/a/b', 'Tür 100%_a/2026-11-20/alarm/03-00-00.mp4', 2, '2026-11-20',
    3000, 1795290678730505947, '084be9dfd2f2bf91954f3132b3cc208ff4d089505a30e9b3d3612dff994b7be1',
    1, 0
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:44871/backup/recorder', 'Front/2026-11-19/01-00-00.mp4', 1, '2026-11-19', 4194304,
    1795290678724212523, '6e23ba6caecc076dde460d4d1a9355e5823367f7e823252a3508b0a226f03af5', 0, 1
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:44871/backup/recorder', 'Front/2026-11-20/01-00-00.mp4', 1, '2026-11-20', 4194304,
    1795290678710393338, '4e450fd154f3d5c8c0c8ce46293e023dad4846ebb48a5298fa7bdc309f3aaf12', 0, 0
);
INSERT INTO copied_file (
    destination, path, taskID, day, size, modified_ns, sha256, side_file, removed
) VALUES (
    '//127.0.0.1:44871/backup/recorder', 'Front/2026-11-21/01-00-00.mp4', 1, '2026-11-21', 4194304,
    1795290678698038343, '4463745f11000b562e148007a9b1fd0978ba0f07bc2f42e9d6a6ead94ac5d408', 0, 0
);
INSERT INTO checkpoint (
    taskID, destination, path, temporary, offset, sha256
) VALUES (
    3, '//127.0.0.1:43009/backup/recorder', 'Front door/2026-11-20/04-30-00.mp4',
    'Front door/2026-11-20/.04-30-00.mp4.3.part', 8388608,
    '0fad73725d3112579b24af43aac8135c050475c88b1dc2f87e5c14bc4fd09ca5'
);

DELETE FROM sqlite_sequence;
INSERT INTO sqlite_sequence (name, seq) VALUES ('task', 4);

CREATE UNIQUE INDEX live_channel ON channel (channel_index) WHERE removed = 0;
CREATE INDEX copied_by_day ON copied_file (taskID, destination, removed, day);
