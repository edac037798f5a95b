"""A database that a newer version has made: the services say so, with a status of its own."""
import sqlite3
from contextlib import closing

import pytest

from state_folder import StateFolder

NOT_TO_BE_REPEATED = 78  # the units name it in RestartPreventExitStatus=


@pytest.mark.parametrize("program, database", [
    ("recorder-logd", "events.db"), ("recording-backupd", "config.db"),
    ("recording-backupd", "backupd.db")])
def test_a_service_leaves_it_as_it_is_and_need_not_be_started_again(tmp_path, program, database):
    state = StateFolder(tmp_path / "state").init()
    path = state.path / database
    with closing(sqlite3.connect(path)) as connection:
        connection.execute("PRAGMA user_version = 99")
    before = path.read_bytes()
    done = state.run(program)
    assert (done.returncode, done.stdout) == (NOT_TO_BE_REPEATED, "")
    assert done.stderr.startswith(f"{program}: {path} has schema 99, this program knows")
    assert path.read_bytes() == before
