-- Third schema: copies are read back the day after, places are told apart, and no date is trusted
-- for want of another.

-- 0 until a sample of the copies of its camera and day, of which it may be a part, was read back;
-- 2 when it was in the sample and is not as it was made, 3 when its content is doubted: it is to be
-- compared with its recording, sampled or not. Copies of the version before are not
-- asked for. The indexes are as small as what a run has to look for.
ALTER TABLE copied_file ADD COLUMN sampled INTEGER NOT NULL DEFAULT 1;
CREATE INDEX copied_to_sample ON copied_file (taskID, destination, removed, day)
    WHERE sampled = 0;
CREATE INDEX copied_and_spoilt ON copied_file (taskID, destination, sampled) WHERE sampled = 2;

-- 1: the destination is a folder of this recorder's own, below the one that its address names,
-- which is another recorder's. What is recorded of the one says nothing of the other.
ALTER TABLE destination ADD COLUMN own INTEGER NOT NULL DEFAULT 0;

-- Places that have turned out to be another one, by the identifiers that they had. A run that is at
-- work there does not know; what it writes is taken in by the next one that comes there.
CREATE TABLE former_destination (
    former TEXT PRIMARY KEY,
    id TEXT NOT NULL
) WITHOUT ROWID;

-- 1: the task is deleted, and its unfinished file is to go from the share.
ALTER TABLE checkpoint ADD COLUMN abandoned INTEGER NOT NULL DEFAULT 0;

-- What was the last day of a run is to be trusted; the version before wrote down the time alone.
INSERT OR IGNORE INTO task_date (taskID, trusted_day)
    SELECT taskID, date(time_ms / 1000, 'unixepoch', 'localtime') FROM run_progress;
