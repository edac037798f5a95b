"""What requests cost, counted instead of timed: instructions and system calls of the whole process
stay within the bounds that docs/performance.md has for them."""
import json
import re
import sqlite3
import subprocess
import time
from contextlib import closing
from datetime import date, timedelta

import pytest

from benchmarks.first_use import script, used
from cgi_program import CgiProgram, cgi_variables
from openapi import document
from places import BUILD, PROGRAMS, SOURCE
from sample_task import NEVER, TASK, task_body
from service_process import running
from waiting import SECONDS

CONSOLE_TASKS = 100
TASKS = 1000
CHANNELS = 128
RUNS = 50
SETTLED_SECONDS = 2.1  # what has changed more recently is read by each request
LAST_DAY = date(2024, 3, 1)  # with recordings: none that begins or ends while something is counted
NOT_THERE = "127.0.0.1:1"  # where alerts are refused at once
BODY = task_body(**NEVER)
SIGN_IN = {"name": "admin", "password": "password of admin"}
SCHEDULE = {key: TASK[key] for key in ("scheduleType", "scheduleWeekly", "scheduleHour",
                                       "scheduleMin", "scheduleEveryHours")}

# Of the page's table: | `GET /fuse` | 62 | 460 |
BOUNDS = {name: (int(calls), int(kilo.replace(",", "")))
          for name, calls, kilo in re.findall(r"^\| `([^`]+)`[^|]* \| (\d+) \| ([\d,]+) \|$",
                                              (SOURCE / "docs/performance.md").read_text(), re.M)}

# What a web server tells besides. Programs look through all of it for what they need, so nothing of
# this machine's environment may come along.
FOLDER = "/home/httpd/cgi-bin"
TOLD_BESIDES = {
    "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
    "GATEWAY_INTERFACE": "CGI/1.1", "SERVER_PROTOCOL": "HTTP/1.1", "REQUEST_SCHEME": "http",
    "SERVER_SOFTWARE": "Apache", "SERVER_SIGNATURE": "", "SERVER_ADMIN": "[no address given]",
    "SERVER_NAME": "127.0.0.1", "SERVER_ADDR": "127.0.0.1", "SERVER_PORT": "8080",
    "REMOTE_ADDR": "127.0.0.1", "REMOTE_PORT": "40000", "DOCUMENT_ROOT": FOLDER,
    "CONTEXT_PREFIX": "/cgi-bin/", "CONTEXT_DOCUMENT_ROOT": FOLDER + "/",
    "SCRIPT_NAME": "/cgi-bin/program", "SCRIPT_FILENAME": FOLDER + "/program",
    "REQUEST_URI": "/cgi-bin/program/path", "PATH_TRANSLATED": FOLDER + "/path",
    "CONTENT_TYPE": "application/json", "HTTP_HOST": "127.0.0.1:8080", "HTTP_ACCEPT": "*/*",
    "HTTP_ACCEPT_LANGUAGE": "en", "HTTP_ACCEPT_ENCODING": "gzip, deflate", "HTTP_DNT": "1",
    "HTTP_CONNECTION": "keep-alive", "HTTP_CACHE_CONTROL": "no-cache", "HTTP_PRAGMA": "no-cache",
    "HTTP_USER_AGENT": "Mozilla/5.0", "HTTP_REFERER": "http://127.0.0.1:8080/",
    "HTTP_SEC_FETCH_DEST": "empty", "HTTP_SEC_FETCH_MODE": "cors",
    "HTTP_SEC_FETCH_SITE": "same-origin"}

PREFIXES = {"/cgi-bin/recording_backup.cgi/": "", "/cgi-bin/console.cgi/": "console: "}

# These wait for a program of the system's, and look for its end as often as it takes.
WAITING = {"GET /share", "GET /task/log/file", "PUT /server/testing", "console: POST shares"}

# What is counted in turn, of a recorder with CONSOLE_TASKS tasks of which none runs: a bound's
# name, and a request.
REQUESTS = [
    ("PUT /task", "/task", BODY),
    ("POST /task/<id>", "/task/1", BODY),
    ("POST /task/<id>/active", "/task/1/active", {"is_active": False}),
    ("POST /task/<id>/is_enable", "/task/1/is_enable", {"is_enable": True}),
    ("GET /task/log", "/task/log", None),
    ("console: GET session", "/session", None),
    ("console: GET task/<id>/runs", "/task/2/runs", None),
    ("console: GET task/<id>/runs/<number>", "/task/2/runs/1", None),
    ("console: GET channel/<guid>/days", "/channel/5F0C/days?month=2024-03", None),
    ("console: POST schedule/preview", "/schedule/preview", SCHEDULE),
    ("console: GET log", "/log", None),
    ("console: GET log.csv", "/log.csv", None),
    ("console: PATCH alerts", "/alerts", {"web_hook": f"http://{NOT_THERE}/"}),
    ("console: GET alerts", "/alerts", None),
    ("console: POST alerts/test", "/alerts/test", {}),
    ("console: GET recorder", "/recorder", None),
    ("console: POST session", "/session", SIGN_IN),
    ("console: DELETE session", "/session", None),
]


class Counter:
    """Runs requests where every instruction and every system call is counted."""

    def __init__(self, folder):
        self.folder = folder
        self.program = CgiProgram(folder / "state")
        self.reply = b""
        self.flushes = 0
        self.counted = {}  # by program, what callgrind has written for each request

    def count(self, method, address, body=None, built="recording_backup.cgi", tag="", again=True):
        """(system calls, thousands of instructions) of one request, without what it starts; if
        `again`, its session has asked for something since the registry was changed."""
        self.program.sid = self.program.open_session("admin")
        if again:
            assert self.program.request("GET", "/fuse").status == 0
        if body is not None and not isinstance(body, str):
            body = json.dumps(body)
        data = (body or "").encode()
        sid = self.program.sid
        path, _, query = address.partition("?")
        variables = cgi_variables(method, path, f"sid={sid}&{query}", len(data) if body else None)
        variables |= {"HTTP_COOKIE": "sid=" + sid, "HTTP_IF_NONE_MATCH": tag}
        log = self.folder / "log"
        files = self.counted.setdefault(built, [])
        files.append(self.folder / f"{built}.{len(files)}")
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", "--trace-syscalls=yes", f"--log-file={log}",
             "--demangle=no", f"--callgrind-out-file={files[-1]}", PROGRAMS / built],
            input=data, capture_output=True, timeout=SECONDS, check=True,
            env={**TOLD_BESIDES, **variables,
                 **{name: self.program.environment[name] for name in ("RECORDER_STATE", "TZ")}})
        self.reply = done.stdout
        said = log.read_text(errors="replace")
        self.flushes = len(re.findall(r"^SYSCALL\[.*sys_f(?:data)?sync\b", said, re.M))
        instructions = re.search(r"refs: +([\d,]+)", said)[1].replace(",", "")
        return len(re.findall(r"^SYSCALL\[", said, re.M)), int(instructions) // 1000

    def count_settled(self, path, built):
        """Of a whole reply, once the daemon has noted of new tasks what it notes."""
        tag = None
        while True:
            counted = self.count("GET", path, built=built)
            assert b"Status: 200" in self.reply
            if tag == (tag := self.tag):
                return counted
            time.sleep(2)  # it looks at them once a second

    def count_unchanged(self, path, built):
        """Of a reply for which nothing was read. With a minute's end all is read again, and what
        has not changed has another tag then."""
        for _ in range(3):
            asked = self.tag
            counted = self.count("GET", path, built=built, tag=asked)
            if b"Status: 304" in self.reply and self.tag == asked:
                return counted
        raise AssertionError(self.reply)

    def fill(self, tasks):
        for _ in range(tasks):
            assert self.program.create(BODY).status == 0

    def add_past(self):
        """A camera with a recording, and as many finished runs as the page shows at once."""
        day = self.folder / "0/2024-03-02"
        day.mkdir(parents=True)
        (day / "00-00-00.mp4").touch()
        self.program.add_channel(0, "Front door", self.folder / "0", guid="5F0C")
        file = self.program.path / "backupd.db"
        with closing(sqlite3.connect(file, timeout=SECONDS)) as memory, memory:
            memory.executemany("INSERT INTO run (taskID, number, task_name, cause, started, ended, "
                               "outcome) VALUES (2, ?, 'Front door', 0, ?, ?, 0)",
                               [(number, number, number + 1) for number in range(1, RUNS + 1)])

    @property
    def tag(self):
        return re.search(rb"(?m)^ETag: (.*?)\r?$", self.reply)[1].decode()


@pytest.fixture
def counter(tmp_path):
    made = Counter(tmp_path)
    with running("recorder-logd", made.program), running("recording-backupd", made.program):
        yield made


def check(name, counted, unchecked):
    """A bound that is far above what is counted guards nothing, and is to be brought down."""
    calls, kilo = counted
    print(f"{name}: {calls} system calls, {kilo} thousand instructions")
    most_calls, most_kilo = BOUNDS[name]
    unchecked.discard(name)
    assert calls <= most_calls and kilo <= most_kilo, name
    assert calls >= most_calls * 0.75 and kilo >= most_kilo * 0.75, f"{name}: the bound is loose"


def check_order(counted):
    """What requests run lies together in the programs, which start more slowly otherwise."""
    if not list(BUILD.glob("*.cgi.map")):
        return  # built without an order, as with sanitizers
    files = {}
    for built, written in counted.items():
        files |= used(PROGRAMS / built, written)
    lines = (SOURCE / "deploy/first_use.ld").read_text()
    own = [name for name, ours in files.items() if ours]
    missing = [name for name in own if f"*{name}(" not in lines]
    if missing:
        (BUILD / "first_use.ld").write_text(script(files))
    # One may have run what seldom is, as for a database that somebody held.
    assert len(missing) <= len(own) / 20, (
        f"deploy/first_use.ld is to be as {BUILD}/first_use.ld, which has {missing}")


def test_requests_stay_within_their_bounds(counter):
    unchecked = set(BOUNDS)
    count = counter.count
    check("GET /fuse", count("GET", "/fuse"), unchecked)
    check("GET /fuse, first since the registry has changed", count("GET", "/fuse", again=False),
          unchecked)
    check("GET /task", count("GET", "/task"), unchecked)
    counter.fill(CONSOLE_TASKS)
    check("console: GET tasks", counter.count_settled("/tasks", "console.cgi"), unchecked)
    check("console: unchanged", counter.count_unchanged("/tasks", "console.cgi"), unchecked)
    counter.add_past()
    for name, address, body in REQUESTS:
        console, _, request = name.rpartition(": ")
        built = "console.cgi" if console else "recording_backup.cgi"
        check(name, count(request.split()[0], address, body, built), unchecked)
        assert b"Status: 2" in counter.reply, (name, counter.reply)
    check("POST /task/<id>/active/enforcement",
          count("POST", "/task/1/active/enforcement", {"is_force_running": True}), unchecked)
    check("DELETE /task/<id>", count("DELETE", "/task/1?isStop=1"), unchecked)
    counter.fill(TASKS - CONSOLE_TASKS)
    check("GET /task/status/<id>, 1,000 tasks", count("GET", f"/task/status/{TASKS}"), unchecked)
    check("GET /task, 1,000 tasks", count("GET", "/task"), unchecked)
    count("GET", "/channel")
    unchecked.remove("GET /channel, 128 channels")  # its cost is counted below
    assert unchecked == set(), "a bound that nothing is counted for"
    check_order(counter.counted)


def commits(journal):
    """How many transactions a write-ahead file holds (sqlite.org/fileformat2.html#walformat)."""
    data = journal.read_bytes()
    page = int.from_bytes(data[8:12], "big")
    found, frame = 0, 32
    while len(data) > frame and data[frame + 8:frame + 16] == data[16:24]:
        found += data[frame + 4:frame + 8] != bytes(4)
        frame += 24 + page
    return found


def test_a_changed_task_is_flushed_once_and_its_event_once_by_the_log_service(counter):
    assert counter.program.create(BODY).status == 0  # the journals' names, too
    events = counter.program.path / "events.db-wal"
    for request in (("PUT", "/task", BODY),
                    ("POST", "/task/1", task_body(**NEVER | {"taskName": "Back door"}))):
        before = commits(events)
        counter.count(*request)
        assert (counter.flushes, commits(events)) == (1, before + 1)
    counter.count("GET", "/task")
    assert counter.flushes == 0


def test_without_the_log_service_a_change_flushes_its_event_itself(tmp_path):
    counter = Counter(tmp_path)
    with running("recording-backupd", counter.program):
        assert counter.program.create(BODY).status == 0  # the journals' names, too
        counter.count("PUT", "/task", BODY)
    assert counter.flushes == 2


def test_a_change_finds_room_in_the_journals(counter):
    """What makes a file longer, the file system flushes, too."""
    assert counter.program.create(BODY).status == 0  # the journals' first change
    journals = [counter.program.path / f"{name}.db-wal" for name in ("config", "events")]
    before = [journal.stat().st_size for journal in journals]
    counter.fill(3)
    assert [journal.stat().st_size for journal in journals] == before


def test_every_route_has_a_bound():
    """A name may go on behind a comma: "GET /task, 1,000 tasks"."""
    bound = {name.split(",")[0].replace(" /", " ") for name in BOUNDS}
    bound |= {name.replace(" /", " ") for name in WAITING}
    for path, methods in document()["paths"].items():
        for root, prefix in PREFIXES.items():
            if path.startswith(root):
                request = re.sub(r"{(\w+)}", r"<\1>", path.removeprefix(root))
                for method in methods:
                    assert f"{prefix}{method.upper()} {request}" in bound


def record_days(folder, days):
    """Gives every channel those of so many days that it does not have."""
    for channel in range(CHANNELS):
        for back in range(days):
            day = folder / str(channel) / str(LAST_DAY - timedelta(back))
            day.mkdir(parents=True, exist_ok=True)
            (day / "00-00-00.mp4").touch()


def count_channels(counter, days):
    """With what an earlier request has found of so many days."""
    record_days(counter.folder, days)
    time.sleep(SETTLED_SECONDS)
    counter.count("GET", "/channel")
    return counter.count("GET", "/channel")


def test_the_list_of_channels_costs_the_same_however_many_days_are_recorded(tmp_path):
    counter = Counter(tmp_path)
    for index in range(CHANNELS):
        (counter.folder / str(index)).mkdir()
        counter.program.add_channel(index, f"Camera {index}", counter.folder / str(index))
    few = count_channels(counter, 5)
    bound = BOUNDS["GET /channel, 128 channels"]
    assert all(most * 0.75 <= counted <= most for counted, most in zip(few, bound)), few
    more = count_channels(counter, 40)
    assert abs(more[0] - few[0]) <= 2
    assert abs(more[1] - few[1]) <= few[1] / 50
