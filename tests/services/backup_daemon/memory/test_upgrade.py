"""The state folder of an older version under the programs: what it takes, what nobody loses."""
import os
import sqlite3
import subprocess
from contextlib import closing
from pathlib import Path

import pytest

from service_process import BIN, SECONDS, State, running, wait_until

OLDER = Path(os.environ["RECORDER_SOURCE"]) / "tests/support/state_of_schema_2"
MOVED = ("next_run", "run_progress", "copied_file", "checkpoint")


@pytest.fixture
def state(tmp_path):
    folder = tmp_path / "state"
    folder.mkdir(mode=0o700)
    for sql in OLDER.glob("*.sql"):
        with closing(sqlite3.connect(folder / f"{sql.stem}.db")) as database:
            database.executescript(sql.read_text())
    return State(folder)


def rows(state, database, sql):
    with closing(sqlite3.connect(state.folder / database, timeout=SECONDS)) as connection:
        return connection.execute(sql).fetchall()


def tables(state, database):
    return {name for name, in rows(state, database,
                                   "SELECT name FROM sqlite_schema WHERE type = 'table'")}


def init(state):
    subprocess.run([BIN / "recorderctl", "init"], env=state.environment, check=True,
                   stdout=subprocess.DEVNULL)


def test_daemon_asks_for_init_first_and_touches_nothing(state):
    done = subprocess.run([BIN / "recording-backupd"], env=state.environment, text=True,
                          capture_output=True, timeout=SECONDS)
    assert done.returncode == 1
    assert done.stderr.count("\n") == 1 and "run recorderctl init" in done.stderr
    assert set(MOVED) < tables(state, "config.db")
    assert not (state.folder / "backupd.db").exists()


def test_daemon_takes_its_rows_over_and_goes_on_with_the_run(state):
    copies = rows(state, "config.db", "SELECT * FROM copied_file ORDER BY destination, path")
    begun = rows(state, "config.db", "SELECT * FROM checkpoint")
    assert len(copies) == 8 and len(begun) == 1
    init(state)
    assert set(MOVED) < tables(state, "config.db"), "not before the daemon has taken them over"
    for _ in range(2):
        with running("recording-backupd", state):
            assert not tables(state, "config.db") & set(MOVED)
            assert set(MOVED) <= tables(state, "backupd.db")
            assert rows(state, "backupd.db", "SELECT * FROM copied_file "
                                             "ORDER BY destination, path") == copies
            assert rows(state, "backupd.db", "SELECT * FROM checkpoint") == begun
            # Its server is gone.
            wait_until(lambda: rows(state, "backupd.db", "SELECT 1 FROM run_progress WHERE "
                                                         "taskID = 3 AND message != ''"))
            assert state.statuses()["3"] == "prepare_start"
        init(state)
    assert (state.folder / "backupd.db").stat().st_mode & 0o777 == 0o600


def test_deleted_task_leaves_its_copies_alone_behind(state):
    init(state)
    with running("recording-backupd", state):
        deleted = rows(state, "backupd.db", "SELECT DISTINCT taskID FROM copied_file")
        assert (2,) in deleted, "a task that was deleted before"
        with closing(sqlite3.connect(state.folder / "config.db", timeout=SECONDS)) as config:
            config.execute("DELETE FROM task WHERE taskID IN (1, 4)")
            config.commit()
        left = "SELECT taskID FROM next_run UNION SELECT taskID FROM run_progress"
        wait_until(lambda: rows(state, "backupd.db", left) == [(3,)])
        assert rows(state, "backupd.db", "SELECT DISTINCT taskID FROM copied_file") == deleted
