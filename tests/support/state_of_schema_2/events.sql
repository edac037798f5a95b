-- The event database of the same state.
PRAGMA user_version = 2;

CREATE TABLE event (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    time_ms INTEGER NOT NULL,
    event_id INTEGER NOT NULL,
    sub_type INTEGER GENERATED ALWAYS AS (event_id >> 16) VIRTUAL,
    channel INTEGER NOT NULL,
    user TEXT NOT NULL,
    ip TEXT NOT NULL,
    arguments TEXT NOT NULL
);

CREATE TABLE event_count (
    sub_type INTEGER PRIMARY KEY,
    events INTEGER NOT NULL
);

INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    1, 1795290678831, 1644429313, -1, 'admin', '127.0.0.1', '["Recording Backup","Overwrites"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    2, 1795290678844, 588578832, -1, 'System', '127.0.0.1', '["Recording Backup","Overwrites"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    3, 1795290678844, 588578819, -1, 'System', '127.0.0.1', '["Recording Backup","Overwrites",""]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    4, 1795290678918, 588578840, -1, 'System', '127.0.0.1',
    '["Recording Backup","Overwrites","2026-11-19, 1 files"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    5, 1795290678950, 588578839, -1, 'System', '127.0.0.1',
    '["Recording Backup","Overwrites","1 files of days before 2026-11-01 removed"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    6, 1795290678950, 588578839, -1, 'System', '127.0.0.1',
    '["Recording Backup","Overwrites","1 files of days before 2026-11-01 removed"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    7, 1795290678955, 588578834, -1, 'System', '127.0.0.1',
    '["Recording Backup","Overwrites","3 files, 12582912 bytes"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    8, 1795290678974, 1644429313, -1, 'admin', '127.0.0.1', '["Recording Backup","Deleted"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    9, 1795290678986, 588578832, -1, 'System', '127.0.0.1', '["Recording Backup","Deleted"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    10, 1795290678987, 588578819, -1, 'System', '127.0.0.1', '["Recording Backup","Deleted",""]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    11, 1795290679082, 588578834, -1, 'System', '127.0.0.1',
    '["Recording Backup","Deleted","5 files, 12585912 bytes"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    12, 1795290679111, 1644429315, -1, 'admin', '127.0.0.1', '["Recording Backup","Deleted"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    13, 1795290679119, 1644429313, -1, 'admin', '127.0.0.1', '["Recording Backup","Runs"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    14, 1795290679131, 1644429313, -1, 'admin', '127.0.0.1',
    '["Recording Backup","Waits für immer"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    15, 1795290679137, 588578832, -1, 'System', '127.0.0.1', '["Recording Backup","Runs"]'
);
INSERT INTO event (
    id, time_ms, event_id, channel, user, ip, arguments
) VALUES (
    16, 1795290679138, 588578819, -1, 'System', '127.0.0.1', '["Recording Backup","Runs",""]'
);
INSERT INTO event_count (
    sub_type, events
) VALUES (
    8981, 11
);
INSERT INTO event_count (
    sub_type, events
) VALUES (
    25092, 5
);

DELETE FROM sqlite_sequence;
INSERT INTO sqlite_sequence (name, seq) VALUES ('event', 16);

CREATE INDEX event_by_sub_type ON event (sub_type, id);
CREATE TRIGGER event_added AFTER INSERT ON event BEGIN
    INSERT INTO event_count VALUES (new.event_id >> 16, 1)
        ON CONFLICT (sub_type) DO UPDATE SET events = events + 1;
END;
CREATE TRIGGER event_removed AFTER DELETE ON event BEGIN
    UPDATE event_count SET events = events - 1 WHERE sub_type = old.event_id >> 16;
END;
CREATE INDEX event_by_time ON event (time_ms);
