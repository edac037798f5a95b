"""Starts the real services on a state folder of their own, and talks HTTP to them."""
import http.client
import json
import os
import signal
import subprocess
import time
import urllib.parse
from contextlib import contextmanager
from pathlib import Path

BIN = Path(os.environ["RECORDER_BUILD"]) / "bin"
SECONDS = 20  # generous: reached only by a service that hangs


class State:
    """A state folder."""

    def __init__(self, folder):
        self.folder = Path(folder)
        self.environment = {**os.environ, "RECORDER_STATE": str(folder),
                            "TZ": "CET-1CEST,M3.5.0,M10.5.0/3"}

    def tool(self, *words, text=b""):
        command = [os.fsencode(word) for word in (BIN / "service_state", *words)]
        done = subprocess.run(command, env=self.environment, input=text, capture_output=True,
                              timeout=SECONDS)
        assert done.returncode == 0, done.stderr
        return done.stdout.decode()

    def init(self):
        self.folder.mkdir(mode=0o700, exist_ok=True)
        self.tool("init")
        return self

    def add_tasks(self, count, **members):
        for number in range(1, count + 1):
            text = {"taskName": f"task {number}", "enable": True, "status": 1,
                    "scheduleHour": 25, **members}
            self.tool("task", text=json.dumps(text).encode())

    def add_event(self, event_id, time_ms, user, ip, *arguments):
        self.tool("event", event_id, str(time_ms), user, ip, *arguments)

    def statuses(self):
        return dict(line.split() for line in self.tool("show").splitlines())


def wait_until(condition):
    deadline = time.monotonic() + SECONDS
    while not condition():
        assert time.monotonic() < deadline, "waited in vain"
        time.sleep(0.02)


def start(program, state, **options):
    """A service that has announced itself."""
    process = subprocess.Popen([BIN / program], env=state.environment, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, **options)
    line = process.stdout.readline()
    assert line.startswith(program + ": listening"), process.communicate(timeout=SECONDS)
    return process


def end(process, number=signal.SIGTERM):
    process.send_signal(number)
    process.communicate(timeout=SECONDS)
    return process.returncode


@contextmanager
def running(program, state, **options):
    process = start(program, state, **options)
    try:
        yield process
        assert process.poll() is None, "the service ended by itself"
        assert end(process) == 0
    finally:
        if process.poll() is None:
            process.kill()
            process.communicate()


def request(port, method, path, body=None, **parameters):
    """Status, headers and body of one reply."""
    query = "?" + urllib.parse.urlencode(parameters) if parameters else ""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=SECONDS)
    try:
        connection.request(method, path + query, body)
        reply = connection.getresponse()
        return reply.status, reply.headers, reply.read()
    finally:
        connection.close()


def request_json(*arguments, **parameters):
    status, _, body = request(*arguments, **parameters)
    return status, json.loads(body)
