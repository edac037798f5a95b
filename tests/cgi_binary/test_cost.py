"""What requests cost, counted instead of timed: instructions and system calls of the whole process
stay within the bounds that docs/performance.md has for them."""
import re
import subprocess
import time
from datetime import date, timedelta

import pytest

from cgi_program import CgiProgram, cgi_variables
from places import PROGRAMS, SOURCE
from sample_task import NEVER, task_body
from service_process import running
from waiting import SECONDS

CONSOLE_TASKS = 100
TASKS = 1000
CHANNELS = 128
SETTLED_SECONDS = 2.1  # what has changed more recently is read by each request
BODY = task_body(**NEVER)

# Of the page's table: | `GET /fuse` | 62 | 460 |
BOUNDS = {name: (int(calls), int(kilo.replace(",", "")))
          for name, calls, kilo in re.findall(r"^\| `([^`]+)`[^|]* \| (\d+) \| ([\d,]+) \|$",
                                              (SOURCE / "docs/performance.md").read_text(), re.M)}


class Counter:
    """Runs requests where every instruction and every system call is counted."""

    def __init__(self, folder):
        self.folder = folder
        self.program = CgiProgram(folder / "state")
        self.reply = b""
        self.flushes = 0

    def count(self, method, path, body=None, built="recording_backup.cgi", tag=""):
        """(system calls, thousands of instructions) of one request."""
        data = (body or "").encode()
        sid = self.program.sid
        variables = cgi_variables(method, path, "sid=" + sid, len(data) if body else None)
        variables |= {"HTTP_COOKIE": "sid=" + sid, "HTTP_IF_NONE_MATCH": tag}
        log = self.folder / "counted"
        done = subprocess.run(
            ["valgrind", "--tool=callgrind", "--trace-syscalls=yes", f"--log-file={log}",
             "--callgrind-out-file=/dev/null", PROGRAMS / built],
            input=data, capture_output=True, timeout=SECONDS, check=True,
            env={**self.program.environment, **variables})
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

    def fill(self, tasks):
        for _ in range(tasks):
            assert self.program.create(BODY).status == 0

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


def test_requests_stay_within_their_bounds(counter):
    unchecked = set(BOUNDS)
    count = counter.count
    check("GET /fuse", count("GET", "/fuse"), unchecked)
    check("GET /task", count("GET", "/task"), unchecked)
    counter.fill(CONSOLE_TASKS)
    check("PUT /task", count("PUT", "/task", BODY), unchecked)
    check("POST /task/<id>", count("POST", "/task/1", BODY), unchecked)
    console = "console.cgi"
    check("console: GET session", count("GET", "/session", built=console), unchecked)
    check("console: GET tasks", counter.count_settled("/tasks", console), unchecked)
    check("console: unchanged", count("GET", "/tasks", built=console, tag=counter.tag), unchecked)
    assert b"Status: 304" in counter.reply
    counter.fill(TASKS - CONSOLE_TASKS - 1)
    check("GET /task/status/<id>", count("GET", f"/task/status/{TASKS}"), unchecked)
    check("GET /task, 1,000 tasks", count("GET", "/task"), unchecked)
    unchecked.remove("GET /channel, 128 channels")  # below
    assert unchecked == set(), "a bound that nothing is counted for"


def test_a_changed_task_and_its_event_are_flushed_once_each(counter):
    assert counter.program.create(BODY).status == 0  # the journals' names, too
    counter.count("PUT", "/task", BODY)
    assert counter.flushes == 2
    counter.count("POST", "/task/1", task_body(**NEVER | {"taskName": "Back door"}))
    assert counter.flushes == 2
    counter.count("GET", "/task")
    assert counter.flushes == 0


def record_days(folder, days):
    """Gives every channel those of the last days that it does not have."""
    for channel in range(CHANNELS):
        for back in range(days):
            day = folder / str(channel) / str(date.today() - timedelta(back))
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
    assert abs(more[1] - few[1]) <= 100
