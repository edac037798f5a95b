"""The SQL that makes today's registry the first version's."""
TO_SCHEMA_1 = """
    DROP TABLE recorder;
    DROP TABLE sign_in;
    ALTER TABLE session DROP COLUMN ends_ms;
    ALTER TABLE session DROP COLUMN opened_ms;
    PRAGMA user_version = 1;
"""
