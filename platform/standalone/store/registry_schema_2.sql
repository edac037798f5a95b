-- Second schema of the registry: who this recorder is, 128 random bits. Shares know it by them.
CREATE TABLE recorder (
    identity TEXT NOT NULL
);
INSERT INTO recorder (identity) VALUES (lower(hex(randomblob(16))));
