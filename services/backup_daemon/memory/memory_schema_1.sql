-- First schema of the backup daemon's own database: schedules, progress, copies, checkpoints.
-- Tasks are in another database, so no row refers to them: what a deleted task leaves is swept
-- (memory_database.h).

-- When a task's schedule comes due next. "rule" is the schedule that the time was reckoned with.
CREATE TABLE next_run (
    taskID INTEGER PRIMARY KEY,
    rule TEXT NOT NULL,
    due INTEGER NOT NULL
);

-- How far a task's last run has come.
CREATE TABLE run_progress (
    taskID INTEGER PRIMARY KEY,
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

-- Files that are complete on a share. They outlive the task: no identifier is ever given twice, and
-- another task with the same destination need not send them again. "removed" ones made room on a
-- full share; they are not sent again either.
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
CREATE INDEX copied_by_day ON copied_file (taskID, destination, removed, day);

-- Files that a run has begun: the temporary file on the share, and how much of it is known to be
-- right ("sha256" of that many bytes; empty when nobody reckoned it).
CREATE TABLE checkpoint (
    taskID INTEGER NOT NULL,
    destination TEXT NOT NULL,
    path TEXT NOT NULL,
    temporary TEXT NOT NULL,
    offset INTEGER NOT NULL,
    sha256 TEXT NOT NULL,
    PRIMARY KEY (taskID, destination, path)
) WITHOUT ROWID;
