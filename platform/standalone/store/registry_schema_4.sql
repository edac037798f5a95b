-- Fourth schema of the registry: signing in by password.

-- Until when a session can be prolonged by being used; NULL of one with a fixed end.
ALTER TABLE session ADD COLUMN ends_ms INTEGER;

-- Who has failed to sign in, and who did it: the SHA-256 of an account's name, whether there is one
-- of it or not (kind 0), of an address (1), or of an account and an address that it has signed in
-- from (2). Rows go when they mean nothing any more (sign_in_store.h).
CREATE TABLE sign_in (
    kind INTEGER NOT NULL,
    subject TEXT NOT NULL,
    failures INTEGER NOT NULL,
    last_ms INTEGER NOT NULL,
    PRIMARY KEY (kind, subject)
) WITHOUT ROWID;
