"""recorderctl state beside the recorder's services: they are copied under, and never replaced."""
import sqlite3
from contextlib import closing

from failures import refused
from service_process import running
from state_folder import StateFolder


def test_a_running_daemons_state_is_copied_and_checked_and_not_replaced(state, tmp_path):
    state.add_tasks(1)
    with running("recording-backupd", state), running("recorder-logd", state):
        state.ctl("state", "backup", tmp_path / "copy")
        assert state.ctl("state", "check").splitlines()[3].startswith("backupd.db\tschema ")
        assert state.ctl("state", "check").count("\tsound\n") == 4
        assert "config.db is in use" in refused(state, "state", "restore", tmp_path / "copy")
    assert len(StateFolder(tmp_path / "copy").stored_tasks()) == 1
    state.add_tasks(1)
    state.ctl("state", "restore", tmp_path / "copy")
    with running("recording-backupd", state), running("recorder-logd", state):
        assert len(state.stored_tasks()) == 1
        assert state.ctl("state", "check").count("\tsound\n") == 4


def test_progress_of_runs_is_told_as_the_daemon_has_written_it(state):
    assert refused(state, "backup", "progress") == (
        f"there is no {state.path}/backupd.db; the backup daemon makes it when it starts")
    state.add_tasks(2)
    with running("recording-backupd", state):
        assert state.ctl("backup", "progress") == state.ctl("backup", "progress", "--json") == ""
    figures = {"percent": 12.5, "rate": 1000.4, "files_done": 1, "files_left": 7,
               "files_failed": 2, "bytes_done": 100, "bytes_planned": 800, "seconds_left": 3,
               "message": "Tür", "time_ms": 1709297110000}
    with closing(sqlite3.connect(state.path / "backupd.db")) as memory, memory:
        for task, seconds in ((1, 3), (2, None)):
            row = {"taskID": task, **figures, "seconds_left": seconds}
            memory.execute(f"INSERT INTO run_progress ({', '.join(row)}) VALUES "
                           f"({', '.join('?' * len(row))})", list(row.values()))
    first, second = state.ctl_json("backup", "progress")
    assert first == {"taskID": "1", **figures}
    assert second["taskID"] == "2" and "seconds_left" not in second
    assert state.ctl("backup", "progress").splitlines()[0] == (
        "1\t2024-03-01 13:45:10\t12.5 %\t1000 bytes/s\t1 files done\t7 left\t2 failed\tTür")
    with closing(sqlite3.connect(state.path / "backupd.db")) as memory:
        memory.execute("PRAGMA user_version = 99")
    assert "backupd.db has schema 99" in refused(state, "backup", "progress")


def test_copies_to_be_compared_once_more_are_counted_whether_the_daemon_runs_or_not(state):
    assert refused(state, "backup", "recheck") == (
        f"there is no {state.path}/backupd.db; the daemon makes it when it starts")
    state.add_tasks(1)
    with running("recording-backupd", state):
        assert state.ctl("backup", "recheck", "1").startswith("0 copies will be compared ")
    assert state.ctl("backup", "recheck").startswith("0 copies will be compared ")
    for unknown in ("2", "x", ""):
        assert refused(state, "backup", "recheck", unknown) == f"there is no task {unknown}"
