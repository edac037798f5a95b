-- First schema of the event database.
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
CREATE INDEX event_by_sub_type ON event (sub_type, id);
