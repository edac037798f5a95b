-- Keeps the number of events by sub-type, so that nobody counts a million, and finds the old ones.
CREATE TABLE event_count (
    sub_type INTEGER PRIMARY KEY,
    events INTEGER NOT NULL
);
INSERT INTO event_count (sub_type, events)
    SELECT sub_type, count(*) FROM event GROUP BY sub_type;
CREATE TRIGGER event_added AFTER INSERT ON event BEGIN
    INSERT INTO event_count (sub_type, events) VALUES (new.event_id >> 16, 1)
        ON CONFLICT (sub_type) DO UPDATE SET events = events + 1;
END;
CREATE TRIGGER event_removed AFTER DELETE ON event BEGIN
    UPDATE event_count SET events = events - 1 WHERE sub_type = old.event_id >> 16;
END;
CREATE INDEX event_by_time ON event (time_ms);
