"""The state folder of an older version under the programs: what it takes, what nobody loses."""
import sqlite3
import time
from contextlib import closing

import pytest

from places import SOURCE
from service_process import running
from state_folder import StateFolder
from waiting import SECONDS, wait_until

OLDER = SOURCE / "tests/support/state_of_schema_2"
MOVED = ("next_run", "run_progress", "copied_file", "checkpoint")


@pytest.fixture
def state(tmp_path):
    folder = tmp_path / "state"
    folder.mkdir(mode=0o700)
    for sql in OLDER.glob("*.sql"):
        with closing(sqlite3.connect(folder / f"{sql.stem}.db")) as database:
            database.executescript(sql.read_text())
    return StateFolder(folder)


def rows(state, database, sql):
    with closing(sqlite3.connect(state.path / database, timeout=SECONDS)) as connection:
        return connection.execute(sql).fetchall()


def tables(state, database):
    return {name for name, in rows(state, database,
                                   "SELECT name FROM sqlite_schema WHERE type = 'table'")}


def test_daemon_asks_for_init_first_and_touches_nothing(state):
    assert "run recorderctl init" in state.refusal("recording-backupd")
    assert set(MOVED) < tables(state, "config.db")
    assert not (state.path / "backupd.db").exists()


def by_address(table):
    """What the table of the older version holds, as the daemon has it now."""
    return f"SELECT address, {table} JOIN destination_address ON id = destination"


COPIES = "path, taskID, day, size, modified_ns, sha256, side_file, removed FROM copied_file"
BEGUN = "taskID, path, temporary, offset, sha256 FROM checkpoint"


def test_daemon_takes_its_rows_over_and_goes_on_with_the_run(state):
    copies = rows(state, "config.db", f"SELECT destination, {COPIES} ORDER BY 1, 2")
    begun = rows(state, "config.db", f"SELECT destination, {BEGUN}")
    assert len(copies) == 8 and len(begun) == 1
    state.init()
    assert set(MOVED) < tables(state, "config.db"), "not before the daemon has taken them over"
    for _ in range(2):
        with running("recording-backupd", state):
            assert not tables(state, "config.db") & set(MOVED)
            assert set(MOVED) <= tables(state, "backupd.db")
            assert rows(state, "backupd.db", by_address(COPIES) + " ORDER BY 1, 2") == copies
            assert rows(state, "backupd.db", by_address(BEGUN)) == begun
            # Its server is gone.
            wait_until(lambda: rows(state, "backupd.db", "SELECT 1 FROM run_progress WHERE "
                                                         "taskID = 3 AND message != ''"),
                       "its next attempt")
            assert state.statuses()["3"] == "prepare_start"
        state.init()
    assert (state.path / "backupd.db").stat().st_mode & 0o777 == 0o600


def test_deleted_task_leaves_its_copies_alone_behind(state):
    state.init()
    with running("recording-backupd", state):
        deleted = rows(state, "backupd.db", "SELECT DISTINCT taskID FROM copied_file")
        assert (2,) in deleted, "a task that was deleted before"
        with closing(sqlite3.connect(state.path / "config.db", timeout=SECONDS)) as config:
            config.execute("DELETE FROM task WHERE taskID IN (1, 4)")
            config.commit()
        left = "SELECT taskID FROM next_run UNION SELECT taskID FROM run_progress"
        wait_until(lambda: rows(state, "backupd.db", left) == [(3,)], "the end of what they left")
        assert rows(state, "backupd.db", "SELECT DISTINCT taskID FROM copied_file") == deleted


# --- from the version before the history of runs -------------------------------------------------

ENDED = int(time.time()) - 3600


@pytest.fixture(name="before")
def version_before_the_history(tmp_path):
    """A daily task that succeeded an hour ago, and one that waited in the queue."""
    state = StateFolder(tmp_path / "before").init()
    state.add_tasks(2)
    state.ctl("task", "set", "1", "status=0", f"startTime={ENDED - 60}", f"endTime={ENDED}",
              "scheduleHour=2", "chIdxList=0")
    state.ctl("task", "set", "2", "status=2")
    with closing(sqlite3.connect(state.path / "config.db")) as config:
        config.executescript("ALTER TABLE queue DROP COLUMN cause; PRAGMA user_version = 3;"
                             "INSERT INTO queue (taskID, place, parallel) VALUES (2, 1, 0);")
    with closing(sqlite3.connect(state.path / "backupd.db")) as memory:
        for number in (1, 2, 3):
            memory.executescript((SOURCE / "services/backup_daemon/memory"
                                  / f"memory_schema_{number}.sql").read_text())
        memory.executescript("PRAGMA user_version = 3")
    return state


def test_success_of_the_version_before_the_history_is_known_and_its_queue_goes_on(before):
    assert "run recorderctl init" in before.refusal("recording-backupd")
    assert "run recorderctl init" in before.refusal("recorderctl", "status")
    before.init()
    with running("recording-backupd", before):
        wait_until(lambda: before.runs("2")[:1] and before.runs("2")[0]["outcome"] == "failed",
                   "the run of the task that waited")
        assert [(run["number"], run["cause"]) for run in before.runs()] == [(1, "by hand")]
        problems = "SELECT kind, subject, told FROM problem"
        wait_until(lambda: rows(before, "backupd.db", problems) == [(0, "2", None)],
                   "the problem, of which nobody is to be told")
        wait_until(lambda: "overdue_from" in before.backup_status()[1]["tasks"][0], "a schedule")
        task = before.backup_status()[1]["tasks"][0]
    assert (task["last_success"], task["overdue"], task["problems"]) == (ENDED, False, [])
    assert task["notes"] == []
    assert "last_success_run" not in task and "last_run" not in task
