-- Third schema of the registry: when a session was opened; NULL of those from before.
ALTER TABLE session ADD COLUMN opened_ms INTEGER;
