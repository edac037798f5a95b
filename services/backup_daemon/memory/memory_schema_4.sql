-- Fourth schema: a history of the runs. run_record.h has the numbers of "cause" and "outcome", and
-- what the counts mean. Rows outlive their task, as long as those of other tasks are kept.

-- Every run, from before its first byte on. "number" counts the runs of a task, from 1. "ended" and
-- "outcome" are NULL while it goes on; "seen" is when its counts were noted last, 0 before that.
-- "goal" is what its task was to keep safe when it began (task_goal.h), '' until it has connected.
CREATE TABLE run (
    taskID INTEGER NOT NULL,
    number INTEGER NOT NULL,
    task_name TEXT NOT NULL,
    cause INTEGER NOT NULL,
    started INTEGER NOT NULL,
    seen INTEGER NOT NULL DEFAULT 0,
    ended INTEGER,
    outcome INTEGER,
    reason TEXT NOT NULL DEFAULT '',
    files_planned INTEGER NOT NULL DEFAULT 0,
    bytes_planned INTEGER NOT NULL DEFAULT 0,
    files_sent INTEGER NOT NULL DEFAULT 0,
    bytes_sent INTEGER NOT NULL DEFAULT 0,
    files_kept INTEGER NOT NULL DEFAULT 0,
    bytes_kept INTEGER NOT NULL DEFAULT 0,
    files_failed INTEGER NOT NULL DEFAULT 0,
    bytes_failed INTEGER NOT NULL DEFAULT 0,
    files_removed INTEGER NOT NULL DEFAULT 0,
    bytes_removed INTEGER NOT NULL DEFAULT 0,
    rate REAL NOT NULL DEFAULT 0,
    goal TEXT NOT NULL DEFAULT '',
    PRIMARY KEY (taskID, number)
) WITHOUT ROWID;
CREATE INDEX run_by_start ON run (started);
CREATE INDEX run_open ON run (taskID) WHERE outcome IS NULL;

-- The first files that a run could not copy, in their order from 0 on.
CREATE TABLE run_failure (
    taskID INTEGER NOT NULL,
    number INTEGER NOT NULL,
    place INTEGER NOT NULL,
    file TEXT NOT NULL,
    reason TEXT NOT NULL,
    PRIMARY KEY (taskID, number, place)
) WITHOUT ROWID;

-- What the runs and the schedule of a task come to, so that nobody has to go through them.
-- "last_number" is the last one that was given to a run; runs before "first_run" are of another
-- task, which had the identifier and is gone. "success_goal" is the last success's goal.
-- "overdue_from" is NULL for a task that is not expected to run; from "late_from" on its last
-- success is too old, whatever its schedule was since. "rule" is the schedule of "first_due".
CREATE TABLE task_health (
    taskID INTEGER PRIMARY KEY,
    last_number INTEGER NOT NULL DEFAULT 0,
    first_run INTEGER NOT NULL DEFAULT 1,
    last_success INTEGER NOT NULL DEFAULT 0,
    success_time INTEGER,
    success_goal TEXT NOT NULL DEFAULT '',
    overdue_from INTEGER,
    late_from INTEGER,
    first_due INTEGER,
    rule TEXT NOT NULL DEFAULT ''
);

-- What somebody must look after and is not over: store/alert_names.h has the numbers of "kind".
-- "subject" is the task's identifier, or a share; "told" is when it was put among the alerts last,
-- NULL while nobody is to be told. "detail" is in words.
CREATE TABLE problem (
    kind INTEGER NOT NULL,
    subject TEXT NOT NULL,
    since INTEGER NOT NULL,
    told INTEGER,
    detail TEXT NOT NULL DEFAULT '',
    PRIMARY KEY (kind, subject)
) WITHOUT ROWID;

-- Alerts on their way, a row for each way (store/alert_names.h has the numbers of "way") and, by
-- mail, for each recipient: "" for web hooks. "id" is the alert's own, the same on all ways and at
-- each attempt; "about" is the problem's, "" for none: of one problem each receiver is told in the
-- order of "number". "object" is what web hooks get, in JSON. A row goes when the alert has
-- arrived, was tried for three days, or its recipient is refused for good.
CREATE TABLE alert (
    number INTEGER PRIMARY KEY AUTOINCREMENT,
    way INTEGER NOT NULL,
    recipient TEXT NOT NULL DEFAULT '',
    id TEXT NOT NULL,
    made INTEGER NOT NULL,
    subject TEXT NOT NULL,
    text TEXT NOT NULL,
    object TEXT NOT NULL,
    about TEXT NOT NULL DEFAULT '',
    attempts INTEGER NOT NULL DEFAULT 0,
    next_attempt INTEGER NOT NULL DEFAULT 0,
    last_failure TEXT NOT NULL DEFAULT ''
);
CREATE INDEX alert_by_receiver ON alert (way, recipient, about, number);

-- Receivers of whom an alert was given up, and none has reached since: when that was, and why.
CREATE TABLE alert_given_up (
    way INTEGER NOT NULL,
    recipient TEXT NOT NULL,
    time INTEGER NOT NULL,
    why TEXT NOT NULL,
    PRIMARY KEY (way, recipient)
) WITHOUT ROWID;

-- What a share told of its room when a run asked it last, in bytes. "destination" is server, port
-- and share in one text, without a folder. A server that does not tell has no row.
CREATE TABLE share_room (
    destination TEXT PRIMARY KEY,
    free INTEGER NOT NULL,
    total INTEGER NOT NULL,
    time INTEGER NOT NULL
) WITHOUT ROWID;

-- Tasks of which samples have found copies that are not as they were made: since when, the newest
-- run that has found some, how many all of these were, and the last one. It is over with the next
-- run that succeeds: its sample has found nothing, and whatever it selects is right.
CREATE TABLE copies_differ (
    taskID INTEGER PRIMARY KEY,
    since INTEGER NOT NULL,
    run INTEGER NOT NULL,
    copies INTEGER NOT NULL,
    path TEXT NOT NULL
);

-- How fast a task's run was: a sample each five seconds, of the last twenty minutes.
CREATE TABLE run_rate (
    taskID INTEGER NOT NULL,
    time INTEGER NOT NULL,
    rate REAL NOT NULL,
    PRIMARY KEY (taskID, time)
) WITHOUT ROWID;
