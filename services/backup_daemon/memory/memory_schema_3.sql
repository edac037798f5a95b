-- Third schema: copies are read back the day after, and no date is trusted for want of another.

-- 0 until a sample of the copies of its camera and day, of which it may be a part, was read back.
-- Copies of the version before are not asked for.
ALTER TABLE copied_file ADD COLUMN sampled INTEGER NOT NULL DEFAULT 1;

-- What was the last day of a run is to be trusted; the version before wrote down the time alone.
INSERT OR IGNORE INTO task_date (taskID, trusted_day)
    SELECT taskID, date(time_ms / 1000, 'unixepoch', 'localtime') FROM run_progress;
