-- Second schema: a destination is known by what it is, a camera's folder by the camera.

-- Places on shares where copies go. "id" is random and stands in the marker that lies there;
-- "marked" ones have been seen with it. A place of a version without markers has its cameras'
-- folders still to be told from its copies while "folders_known" is 0.
CREATE TABLE destination (
    id TEXT PRIMARY KEY,
    marked INTEGER NOT NULL DEFAULT 0,
    folders_known INTEGER NOT NULL DEFAULT 0
) WITHOUT ROWID;

-- Which of them was last found behind an address (server, port, share and folder in one text).
CREATE TABLE destination_address (
    address TEXT PRIMARY KEY,
    id TEXT NOT NULL
) WITHOUT ROWID;

-- The folder that a camera's copies have in a destination. It is chosen once and stays; "folded" is
-- the name as a server sees it that does not tell upper case from lower case.
CREATE TABLE camera_folder (
    destination TEXT NOT NULL,
    guid TEXT NOT NULL,
    folder TEXT NOT NULL,
    folded TEXT NOT NULL,
    PRIMARY KEY (destination, guid),
    UNIQUE (destination, folded)
) WITHOUT ROWID;

-- How far the date may be trusted when a task's old copies are to go: the newest day that was, and
-- the first and the last one of those that have been doubted since ("doubted_until" is NULL with
-- "doubted_day").
CREATE TABLE task_date (
    taskID INTEGER PRIMARY KEY,
    trusted_day TEXT NOT NULL,
    doubted_day TEXT,
    doubted_until TEXT
);

-- The modification time that the share told for the copy; NULL when it is not known. "removed" is
-- from now on 0 (there), 1 (gone, to make room) or 2 (being removed to make room).
ALTER TABLE copied_file ADD COLUMN share_modified_ns INTEGER;

-- Column "destination" was the address, and becomes the identifier.
INSERT INTO destination_address (address, id)
    SELECT address, lower(hex(randomblob(16))) FROM (
        SELECT destination AS address FROM copied_file
        UNION SELECT destination FROM checkpoint
    );
INSERT INTO destination (id) SELECT id FROM destination_address;
UPDATE copied_file SET destination =
    (SELECT id FROM destination_address WHERE address = copied_file.destination);
UPDATE checkpoint SET destination =
    (SELECT id FROM destination_address WHERE address = checkpoint.destination);
