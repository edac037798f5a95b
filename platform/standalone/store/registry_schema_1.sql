-- First schema of the registry: keys, users, sessions. Every request reads it, and SQLite parses a
-- database's whole schema before the first answer, so tables with many columns stand elsewhere.
CREATE TABLE config_key (
    section TEXT NOT NULL,
    key TEXT NOT NULL,
    value TEXT NOT NULL,
    PRIMARY KEY (section, key)
) WITHOUT ROWID;

CREATE TABLE user (
    name TEXT PRIMARY KEY,
    password_hash TEXT NOT NULL,
    level INTEGER NOT NULL
) WITHOUT ROWID;

CREATE TABLE session (
    sid_hash TEXT PRIMARY KEY,
    user TEXT NOT NULL REFERENCES user ON DELETE CASCADE,
    expires_ms INTEGER NOT NULL
) WITHOUT ROWID;
CREATE INDEX session_of_user ON session (user);
