"""Others that hold one of the recorder's databases, and runs to be troubled by that."""
import json
import sqlite3
import subprocess
import threading
import time
from contextlib import contextmanager, suppress

from backup_house import MIB, House, noise
from loopback import request_json
from places import STATE
from waiting import SECONDS, wait_until

NOTICES = (10205, "/databackupService/notify")
TASKS = (10141, "/cfg/DataBackupService")

FILES = 12
SIZE = 2 * MIB
RATE = 4 * MIB  # bytes a second: some seconds of copying


class Lock:
    """Holds a database as another writer does, until release() or for so many seconds."""

    def __init__(self, name, seconds=None):
        self.connection = sqlite3.connect(STATE / name, timeout=SECONDS, isolation_level=None,
                                          check_same_thread=False)
        self.connection.execute("BEGIN EXCLUSIVE")
        self.began = time.monotonic()
        self.timer = None
        if seconds:
            self.timer = threading.Timer(seconds, self.release)
            self.timer.start()

    def release(self):
        self.connection.execute("ROLLBACK")

    def seconds(self):
        """For how long it has been held."""
        return time.monotonic() - self.began

    def wait(self):
        """Until it has been released."""
        self.timer.join()


class SmallState(House):
    """The recorder's state is a file system of its own that is soon full."""

    def __enter__(self):
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8m,mode=700", "small", STATE],
                       check=True)
        return super().__enter__()

    def __exit__(self, *unused):
        super().__exit__(*unused)
        subprocess.run(["umount", "--lazy", STATE], check=True)

    @contextmanager
    def full_disk(self):
        filler = STATE / "filler"
        with open(filler, "wb", buffering=0) as file:
            with suppress(OSError):
                while file.write(bytes(MIB)):
                    continue
        try:
            yield
        finally:
            filler.unlink()


def record(house):
    for number in range(FILES):
        house.record(0, number % 2, f"{number:02}-00-00.mp4", noise(SIZE + number, number))


def start_copying(house, proxy, **changes):
    """A task in the middle of its run. Its rest crawls until the proxy has another rate."""
    record(house)
    proxy.crawl_after(3 * SIZE)
    task_id = house.create(port=proxy.port, **changes)
    house.force(task_id)
    wait_until(lambda: len(house.copied()) >= 2, "some copies")
    return task_id


def query(act, member):
    """The tasks that wait, or that run."""
    status, reply = request_json(NOTICES[0], "GET", NOTICES[1], act=act)
    assert status == 200, reply
    return [task["taskID"] for task in reply[member]]


def waiting():
    return query("get_waitingTask_seq", "watinTask_info")


def running():
    return query("get_runningTask_info", "runningTask_info")


def notice(**task_info):
    return request_json(NOTICES[0], "PUT", NOTICES[1], json.dumps(
        {"notice_reason": {"type": 1030, "action": 1}, "task_info": task_info}))


def delete(task_id):
    return request_json(TASKS[0], "DELETE", TASKS[1], taskID=task_id)
