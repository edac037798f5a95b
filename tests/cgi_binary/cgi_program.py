"""The CGI program as a web server starts it: environment and standard input in, bytes out."""
import json
import os
import subprocess
from pathlib import Path

BIN = Path(os.environ["RECORDER_BUILD"]) / "bin"
HEADERS = b"Status: 200 OK\r\nContent-type: application/json\r\n\r\n"
SUCCESS = '{ "ret_code": 0, "mesg": "Success." }'
SECONDS = 60  # generous: reached only by something that hangs

INPUT_FORMAT_ERROR = 0x950A0004
PARSE_FAIL = 0x950A0005
INVALID_VALUE = 0x950A0006
CHANGE_STATUS_ERROR = 0x950A0022

TASK = {
    "taskName": "Night copy", "serverIP": "192.0.2.7", "port": 445, "username": "backup",
    "password": "p@ss word", "destPath": "/share/a", "chIdxList": [1, 3, 4],
    "backupType": "BackupByTimeRange", "backupDays": 7, "backupStartDay": 1709251200,
    "backupEndDay": 1709337600, "backupImmediately": False, "scheduleType": "weekly",
    "scheduleWeekly": 3, "scheduleHour": 2, "scheduleMin": 30, "scheduleEveryHours": 6,
    "recordingType": "recording_and_alarm", "recordingFormat": "ostra", "remoteKeepRec": True,
    "remoteKeepRecDays": 30, "remoteOverwriteType": "overwrite"}


def task_body(**changes):
    """A complete request body; a member given as None is left out."""
    members = {**TASK, **changes}
    return json.dumps({name: value for name, value in members.items() if value is not None})


def printed(text):
    """What the program prints for a reply with headers."""
    return HEADERS + text.encode() + b"\n\n"


def error(code, message="Insert task to database fail."):
    """An error reply, as text."""
    return '{ "ret_code": %d.0, "mesg": "%s" }' % (code, message)


class Result:
    """Exit status and standard output of one request."""

    def __init__(self, done):
        self.status = done.returncode
        self.output = done.stdout
        self.errors = done.stderr

    @property
    def text(self):
        """The reply without headers and closing line ends; fails when either is missing."""
        assert self.output.startswith(HEADERS), self.output
        assert self.output.endswith(b"\n\n"), self.output
        return self.output[len(HEADERS):-2].decode("utf-8", "surrogateescape")


class Program:
    """The program over a recorder state of its own, with an administrator's session."""

    def __init__(self, state):
        self.state = state
        self.zone = "UTC0"
        self.command = [BIN / "recording_backup.cgi"]
        self.seconds = SECONDS
        self.ctl("init")
        self.ctl("user", "add", "admin", password="an admin's password")
        self.sid = self.ctl("session", "open", "admin").strip()

    def ctl(self, *arguments, password=None):
        """Runs recorderctl and gives what it printed."""
        done = subprocess.run([BIN / "recorderctl", "--state", self.state, *arguments],
                              input=password, capture_output=True, text=True, timeout=SECONDS,
                              check=False)
        assert done.returncode == 0, done.stderr
        return done.stdout

    def tasks(self):
        """The stored records."""
        return [json.loads(line) for line in self.ctl("task", "list", "--json").splitlines()]

    def events(self):
        """The stored events, newest first."""
        return [json.loads(line) for line in self.ctl("event", "list", "--json").splitlines()]

    def environment(self, method, path, length, query):
        """What the web server would set; None leaves a variable out."""
        variables = {"RECORDER_STATE": str(self.state), "REQUEST_METHOD": method,
                     "PATH_INFO": path, "CONTENT_LENGTH": length, "TZ": self.zone,
                     "HTTP_X_FORWARDED_FOR": "198.51.100.9",
                     "QUERY_STRING": f"sid={self.sid}" if query is None else query}
        return {name: value for name, value in variables.items() if value is not None}

    def request(self, method, path, body=None, length=..., query=None):
        """Serves one request. `length` is the body's own unless given; `query` has the session."""
        data = body.encode("utf-8", "surrogateescape") if isinstance(body, str) else body
        if length is ...:
            length = None if data is None else str(len(data))
        done = subprocess.run(self.command, input=data or b"",
                              env=self.environment(method, path, length, query),
                              capture_output=True, timeout=self.seconds, check=False)
        result = Result(done)
        assert result.errors == b""
        assert result.status >= 0, f"ended by signal {-result.status}"
        return result

    def create(self, body, **how):
        return self.request("PUT", "/task", body, **how)

    def modify(self, task_id, body, **how):
        return self.request("POST", f"/task/{task_id}", body, **how)
