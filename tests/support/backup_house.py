"""A recorder with recordings, a share to copy them to, and what tests ask about the outcome."""
import hashlib
import sqlite3
from pathlib import Path

from places import STATE, STORAGE
from recorder_clock import NOON, day_name
from sample_task import NEVER, task
from samba_server import USER, SambaServer
from stand_alone_recorder import Recorder
from waiting import SECONDS, wait_until

MIB = 1024 * 1024

SUCCESS, NEW, WAIT, PREPARE_START, RUNNING, CANCEL, FAILED, PREPARE_STOP = range(8)


def noise(size, seed):
    """Bytes that differ everywhere, so that a block in the wrong place is noticed."""
    block = hashlib.shake_128(str(seed).encode()).digest(min(size, 1024 * 1024 - 7))
    return (block * (size // max(len(block), 1) + 1))[:size]


def tree(folder):
    """Relative path and hash of every file below a folder."""
    folder = Path(folder)
    return {str(path.relative_to(folder)): hashlib.sha256(path.read_bytes()).hexdigest()
            for path in folder.rglob("*") if path.is_file()}


class House:
    """Channels 0 to `channels`-1 named "Camera 0" ..., and a Samba server whose share "backup" is
    the folder `share`; `settings` are the server's."""

    def __init__(self, folder, channels=1, share=None, settings=None):
        self.recorder = Recorder(NOON)
        self.share = Path(share or folder / "share")
        self.samba = SambaServer(folder / "samba", {"backup": {
            "path": self.share, "read only": "no", "force user": "root"}}, settings)
        self.channels = channels

    def __enter__(self):
        self.share.mkdir(parents=True, exist_ok=True)
        self.samba.start()
        self.recorder.start()
        for number in range(self.channels):
            self.add_channel(number, f"Camera {number}")
        return self

    def __exit__(self, failure, *unused):
        try:
            if failure is None:
                self.check_history()
        finally:
            self.recorder.clean_up()
            self.samba.stop()

    # --- recordings -----------------------------------------------------------------------------

    def add_channel(self, number, name):
        folder = STORAGE / str(number)
        folder.mkdir(parents=True, exist_ok=True)
        self.recorder.add_channel(number, name, folder)

    def record(self, channel, days_ago, name, content, alarm=False):
        folder = STORAGE / str(channel) / day_name(days_ago) / ("alarm" if alarm else "")
        folder.mkdir(parents=True, exist_ok=True)
        path = folder / name
        path.write_bytes(content)
        return path

    # --- tasks ----------------------------------------------------------------------------------

    def settings(self, **changes):
        return task(**{
            "serverIP": "127.0.0.1", "port": self.samba.port, "username": USER,
            "password": self.samba.password, "destPath": "/backup/recorder",
            "chIdxList": list(range(self.channels)), "backupDays": 30, "recordingFormat": "mp4",
            "remoteKeepRec": False, "remoteOverwriteType": "stop_overwrite", **NEVER, **changes})

    def create(self, **changes):
        """A task that no schedule ever starts; gives its identifier."""
        reply = self.recorder.create(self.settings(**changes))
        assert reply.json["ret_code"] == 0, reply.text
        return self.recorder.stored_tasks()[-1]["taskID"]

    def force(self, task_id, stop=True, parallel=False):
        reply = self.recorder.call("POST", f"task/{task_id}/active/enforcement", {
            "is_force_running": stop, "is_parallel_running": parallel})
        assert reply.json["ret_code"] == 0, reply.text

    def activate(self, task_id, active=True):
        self.recorder.ctl("config", "set", "fuse", "fuse_enabled", "1")
        reply = self.recorder.call("POST", f"task/{task_id}/active", {"is_active": active})
        assert reply.json["ret_code"] == 0, reply.text
        return reply.json

    def stored(self, task_id):
        return next(task for task in self.recorder.stored_tasks() if task["taskID"] == task_id)

    def status(self, task_id):
        return self.stored(task_id)["status"]

    def wait_for(self, task_id, *statuses, seconds=SECONDS):
        wait_until(lambda: self.status(task_id) in statuses, f"status {statuses}", seconds)

    def run(self, task_id, status=SUCCESS, seconds=SECONDS):
        """Runs a task to its end."""
        self.force(task_id)
        self.wait_for_end(task_id, seconds)
        assert self.status(task_id) == status, (self.status(task_id), self.progress(task_id),
                                                self.events())

    def wait_for_end(self, task_id, seconds=SECONDS):
        self.wait_for(task_id, SUCCESS, FAILED, CANCEL, seconds=seconds)

    def wait_until_success_counts(self, task_id):
        """A task's first success is told by its state, and then, of a task with a schedule, stored
        with the time from which the next one is late. Whoever changes these times comes behind."""
        wait_until(lambda: self.database(
            "SELECT 1 FROM task_health WHERE taskID = ? AND late_from > 0", task_id),
            "the success to count")

    # --- outcome --------------------------------------------------------------------------------

    def database(self, sql, *values):
        """Asks the daemon's own database."""
        connection = sqlite3.connect(STATE / "backupd.db", timeout=SECONDS)
        connection.row_factory = sqlite3.Row
        try:
            return [dict(row) for row in connection.execute(sql, values)]
        finally:
            connection.close()

    def change_database(self, *statements):
        """Changes the daemon's own database, as somebody beside it."""
        connection = sqlite3.connect(STATE / "backupd.db", timeout=SECONDS, isolation_level=None)
        for sql in statements:
            connection.execute(sql)
        connection.close()

    def progress(self, task_id):
        return self.database("SELECT * FROM run_progress WHERE taskID = ?", task_id)

    def copied(self):
        return {row["path"]: row for row in self.database("SELECT * FROM copied_file")
                if not row["removed"]}

    def events(self):
        """Identifier and detail, newest first."""
        return [(event["id"], event["arguments"][2:]) for event in self.recorder.events()]

    def last_event(self, event_id):
        """The detail of the newest event with this identifier; None without one."""
        return next((detail for event, detail in self.events() if event == event_id), None)

    def shared(self, folder="recorder"):
        """All but the recorder's marker, and what a claim of it that was cut off has left."""
        return {path: digest for path, digest in tree(self.share / folder).items()
                if not path.startswith(".recording-backup")}

    def sources(self):
        """The tree that the share should hold: channels by name instead of by number."""
        wanted = {}
        for path, digest in tree(STORAGE).items():
            number, _, rest = path.partition("/")
            wanted[f"Camera {number}/{rest}"] = digest
        return wanted

    def check_history(self):
        """Whatever has happened, nobody is told that the recordings are safe when they are not."""
        if not (STATE / "backupd.db").exists():
            return
        code, status = self.settled_status()
        assert (code != 0) == status["needs_attention"], status
        for task in status["tasks"]:
            rows = self.database("SELECT * FROM run WHERE taskID = ? ORDER BY number",
                                 task["taskID"])
            self.check_task_history(task, rows)
            if task["state"] == "failed" and task["enabled"]:
                assert task["problems"] and not status["headline"].startswith("SAFE"), status
            if task["enabled"]:
                self.check_enabled_task(task, rows, status["headline"].startswith("SAFE"))

    def settled_status(self):
        """A daemon that answers stores a schedule's next time right behind the task's change."""
        def is_settled():
            nonlocal told
            told = self.recorder.backup_status()
            return not told[1]["daemon_answers"] or all(
                "next_run" in task or task["problems"] or not task["enabled"]
                for task in told[1]["tasks"])
        told = None
        wait_until(is_settled, "a schedule's next time")
        return told

    def check_enabled_task(self, task, rows, is_safe):
        """Nothing is safe that was edited since its success, or that no schedule starts."""
        stands = self.success_stands(task, rows)
        assert stands or task["notes"] or task["overdue"], (task, rows)
        assert "next_run" in task or task["problems"], task
        assert not is_safe or (stands and not task["problems"] and not task["overdue"]), task

    def success_stands(self, task, rows):
        """Whether the last success is one of the task as it is now."""
        if "last_success_run" not in task:
            return "last_success" in task and task["state"] == "success"
        goal, = [row["goal"] for row in rows if row["number"] == task["last_success_run"]]
        return goal == self.recorder.output("service_state", "goal", task["taskID"])

    @staticmethod
    def check_task_history(task, rows):
        successes = [row for row in rows if row["outcome"] == 0]
        assert all(row["files_failed"] == 0 for row in successes), rows
        told = max((row["ended"] for row in successes), default=None)
        assert task.get("last_success") == told, (task, rows)
        # A row is closed right behind the task's own state.
        if rows and rows[-1]["outcome"] is not None and task["state"] in ("success", "failed"):
            whole = [row["outcome"] for row in rows if row["outcome"] in (0, 1)]
            assert whole[-1:] == [task["state"] == "failed"], (task, rows)

    def check_records(self):
        """Everything listed as done is complete on the share."""
        shared = self.shared()
        for path, row in self.copied().items():
            assert path in shared, path
            assert row["size"] == (self.share / "recorder" / path).stat().st_size, path
            assert not row["sha256"] or row["sha256"] == shared[path], path
