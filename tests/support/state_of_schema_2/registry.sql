-- The registry of the same state.
PRAGMA user_version = 1;

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

INSERT INTO config_key (
    section, key, value
) VALUES (
    'backup', 'max_parallel', '3'
);
INSERT INTO user (
    name, password_hash, level
) VALUES (
    'admin',
'$argon2id$v=19$m=65536,t=2,p=1$7iSIplRlgw/9jDloI8BvLQ$WJi6+D8e2a9/xyJfbKxxcpLQ9lak/aG4tHjFKnv5mxQ',
    11
);
INSERT INTO user (
    name, password_hash, level
) VALUES (
    'viewer',
'$argon2id$v=19$m=65536,t=2,p=1$lhTM9FENGqZyHQwe2OfDbQ$l0mu66fh/VLucApS76Hv2wRfpFGcOr2PWulvKYeIwPE',
    3
);
INSERT INTO session (
    sid_hash, user, expires_ms
) VALUES (
    '091f4ae7c82b8edbbc0abfc304f860bcfaaff00a5da479a8eed74511d67bbd51', 'viewer', 1795294278668
);
INSERT INTO session (
    sid_hash, user, expires_ms
) VALUES (
    'b8236595ef653e1c9490fa244d1a66d4557858e521d0f3f18abcd99a2449083a', 'admin', 1795294278516
);

CREATE INDEX session_of_user ON session (user);
