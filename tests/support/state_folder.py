"""A recorder's state folder: made, filled and shown by the administrator's command."""
import json
import os
import re
import subprocess
from pathlib import Path

from places import PROGRAMS
from sample_task import NEVER
from waiting import SECONDS

# Not UTC, so that local times and UTC cannot be mistaken for each other.
ZONE = "CET-1CEST,M3.5.0,M10.5.0/3"


class StateFolder:
    """`environment` is what programs need to find it, and their time zone."""

    def __init__(self, path, zone=ZONE, programs=PROGRAMS):
        self.path = Path(path)
        self.programs = programs
        self.environment = {**os.environ, "RECORDER_STATE": str(path), "TZ": zone}

    def run(self, program, *words, given=""):
        """Runs one of our programs to its end, whichever that is."""
        return subprocess.run([self.programs / program, *words], env=self.environment, input=given,
                              capture_output=True, text=True, timeout=SECONDS, check=False)

    def output(self, program, *words, given=""):
        """What a program prints that can do this."""
        done = self.run(program, *words, given=given)
        assert (done.returncode, done.stderr) == (0, ""), done
        return done.stdout

    def refusal(self, program, *words, given=""):
        """The one line with which a program says why it cannot do this."""
        done = self.run(program, *words, given=given)
        assert (done.returncode, done.stdout) == (1, ""), done
        assert done.stderr.startswith(program + ": ") and done.stderr.count("\n") == 1, done.stderr
        return done.stderr.removeprefix(program + ": ").rstrip("\n")

    def ctl(self, *words, given=""):
        return self.output("recorderctl", *words, given=given)

    def ctl_json(self, *words):
        return [json.loads(line) for line in self.ctl(*words, "--json").splitlines()]

    def init(self):
        self.ctl("init")
        return self

    def add_user(self, name, level=11):
        self.ctl("user", "add", name, "--level", str(level), given="password of " + name)

    def open_session(self, name):
        return self.ctl("session", "open", name).strip()

    def add_channel(self, index, name, recordings, *, guid=None, ip="192.0.2.21", brand="Acme",
                    streams=1):
        self.ctl("channel", "add", "--index", str(index), "--guid", guid or f"guid-{index}",
                 "--ip", ip, "--name", name, "--brand", brand, "--model", "X1",
                 "--streams", str(streams), "--recordings", str(recordings))

    def stored_tasks(self):
        return self.ctl_json("task", "list")

    def statuses(self):
        """The word of each task's status."""
        rows = [line.split("\t") for line in self.ctl("task", "list").splitlines()]
        return {task_id: status for task_id, _, status, _ in rows}

    def events(self, *words):
        """Newest first, the newest hundred."""
        return self.ctl_json("event", "list", *words)

    def runs(self, *words):
        """The whole history, the newest run first."""
        return self.ctl_json("run", "list", "--all", *words)

    def backup_status(self):
        """The exit status of the command, and what it tells."""
        done = self.run("recorderctl", "status", "--json")
        return done.returncode, json.loads(done.stdout)

    # --- what no command of the administrator's does ---------------------------------------------

    def store_task(self, **members):
        """As a request's settings text reaches the store: no escape has its backslash."""
        text = re.sub(r"\\(.)", r"\1", json.dumps(members, ensure_ascii=False))
        self.output("service_state", "task", given=text)

    def add_tasks(self, count, **members):
        """Enabled new tasks that no schedule starts."""
        for number in range(1, count + 1):
            self.store_task(**{"taskName": f"task {number}", "enable": True, "status": 1,
                               "scheduleHour": NEVER["scheduleHour"], **members})

    def add_event(self, event_id, time_ms, user, ip, *arguments):
        self.output("service_state", "event", event_id, str(time_ms), user, ip, *arguments)
