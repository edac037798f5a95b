"""The SQL that makes today's registry the first version's."""
TO_SCHEMA_1 = """
    DROP TABLE recorder;
    ALTER TABLE session DROP COLUMN opened_ms;
    PRAGMA user_version = 1;
"""
