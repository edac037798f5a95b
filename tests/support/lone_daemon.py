"""A backup daemon with a state and a network of its own, for tests of several recorders at once."""
import array
import json
import socket
import sqlite3
import subprocess
from contextlib import closing
from pathlib import Path

from fault_proxy import FaultProxy
from own_network import OwnNetwork
from places import PROGRAMS
from recorder_clock import NOON
from service_process import end, start
from state_folder import StateFolder
from samba_server import USER
from waiting import SECONDS, wait_until

# As stored.
LAST_DAYS = 0
NORMAL_AND_ALARM = 2

LISTEN = """
import array, socket, sys
listener = socket.create_server(("127.0.0.1", 0))
ours = socket.socket(fileno=int(sys.argv[1]))
ours.sendmsg([b"x"], [(socket.SOL_SOCKET, socket.SCM_RIGHTS,
                       array.array("i", [listener.fileno()]))])
"""
NOTIFY = """
import sys, urllib.request
urllib.request.urlopen(urllib.request.Request(
    "http://127.0.0.1:10205/databackupService/notify", sys.argv[1].encode(), method="PUT"))
"""


class LoneDaemon(StateFolder):
    """`recordings` is the folder that its cameras record in; `proxy` leads from its network to the
    server."""

    def __init__(self, folder, server):
        super().__init__(folder / "state", NOON)
        self.recordings = folder / "recordings"
        self.server = server
        self.process = None

    def __enter__(self):
        self.recordings.mkdir(parents=True)
        self.init()
        self.network = OwnNetwork().__enter__()
        self.proxy = FaultProxy(self.server.port, self.listener()).__enter__()
        return self

    def __exit__(self, *unused):
        self.kill()
        self.proxy.__exit__()
        self.network.__exit__()

    def inside(self, *command):
        return self.network.inside(*command)

    def listener(self):
        """A socket that listens in the daemon's network, and can be used from here."""
        ours, theirs = socket.socketpair()
        with ours, theirs:
            subprocess.run(self.inside("/usr/bin/python3", "-c", LISTEN, theirs.fileno()),
                           pass_fds=[theirs.fileno()], check=True, timeout=SECONDS)
            numbers = array.array("i")
            _, ancillary, _, _ = ours.recvmsg(1, socket.CMSG_SPACE(numbers.itemsize))
            numbers.frombytes(ancillary[0][2][:numbers.itemsize])
        return socket.socket(fileno=numbers[0])

    # --- what it has to do ----------------------------------------------------------------------

    def add_camera(self, number, name, **options):
        folder = self.recordings / str(number)
        folder.mkdir(exist_ok=True)
        self.add_channel(number, name, folder, **options)

    def record(self, number, day, name, content):
        path = self.recordings / str(number) / day / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return path

    def add_task(self, **changes):
        """Gives the new task's identifier."""
        self.add_tasks(1)
        task_id = self.stored_tasks()[-1]["taskID"]
        fields = {"serverIP": "127.0.0.1", "port": self.proxy.port, "username": USER,
                  "password": "-", "destPath": "/backup/recorder",
                  "chIdxList": "0", "backupType": LAST_DAYS, "backupDays": 3000,
                  "recordingType": NORMAL_AND_ALARM, **changes}
        self.ctl("task", "set", task_id, *(f"{key}={value}" for key, value in fields.items()),
                 given=self.server.password)
        return task_id

    # --- its life -------------------------------------------------------------------------------

    def start(self):
        self.process = start(self.inside(PROGRAMS / "recording-backupd"),
                             "recording-backupd: listening", env=self.environment)

    def stop(self):
        process, self.process = self.process, None
        assert end(process) == 0

    def kill(self):
        if self.process:
            self.process.kill()
            self.process.communicate()
        self.process = None

    def begin_run(self, task_id):
        notice = {"notice_reason": {"type": 1030, "action": 1},
                  "task_info": {"start_task": True, "taskID": int(task_id)}}
        subprocess.run(self.inside("/usr/bin/python3", "-c", NOTIFY, json.dumps(notice)),
                       check=True, timeout=SECONDS)

    def wait_for_end(self, task_id):
        """Gives the status."""
        ended = ("success", "failed", "cancel")
        wait_until(lambda: self.statuses()[task_id] in ended, "the end of the run")
        return self.statuses()[task_id]

    def run_task(self, task_id):
        self.begin_run(task_id)
        return self.wait_for_end(task_id)

    def memory(self, sql):
        """Asks the daemon's own database."""
        with closing(sqlite3.connect(self.path / "backupd.db", timeout=SECONDS)) as database:
            return database.execute(sql).fetchall()

    @property
    def identity(self):
        return self.ctl_json("info")[0]["identity"]

    @property
    def own_folder(self):
        return Path("Recorder " + self.identity[:8])
