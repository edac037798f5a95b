"""What requests cost: each route's process beside an empty one, and the rate behind Apache."""
import os
import re
import subprocess
import sys
import tempfile
import time
from datetime import date, timedelta

from cgi_program import CgiProgram, cgi_variables
from places import CGI, PROGRAMS, STATE, STORAGE
from sample_task import NEVER, task_body
from service_process import ended_afterwards, start_recorder

BUILT = PROGRAMS / "recording_backup.cgi"
CONSOLE = PROGRAMS / "console.cgi"
EMPTY = PROGRAMS / "bench_empty"
PORT = 8080
RUNS = 300
TASKS = 1000
CONSOLE_TASKS = 100  # a page polls, so what it asks for has a bound of its own
CHANNELS = 128
CHANNEL_DAYS = (30, 365, 3650)
CHANNEL_RUNS = 50
FULL_LOOKS = 5
DAYS_WITH_FOUR = 365  # recordings; days before have one
SETTLED_SECONDS = 2.1  # what has changed more recently is read by each request
RECORDINGS = STORAGE / "bench"
WEB_REQUESTS = 2000
WEB_CLIENTS = 4

# As in earlier versions of this program, whose figures are compared with these.
BODY = task_body(taskName="Bench", serverIP="127.0.0.1", username="u", password="p",
                 destPath="/share/folder", chIdxList=[0, 1, 2, 3], recordingType="recording",
                 recordingFormat="mp4", remoteKeepRec=False, remoteKeepRecDays=0,
                 remoteOverwriteType="stop_overwrite", scheduleWeekly=0, scheduleMin=0,
                 scheduleEveryHours=0, **NEVER)


def measure(program, method, path, body, runs, built, tag):
    """Times and peak memories of a CGI program and of the empty one, run in turn."""
    variables = cgi_variables(method, path, "sid=" + program.sid, len(body))
    variables |= {"HTTP_COOKIE": "sid=" + program.sid, "HTTP_IF_NONE_MATCH": tag}
    with tempfile.NamedTemporaryFile("w") as given:
        given.write(body)
        given.flush()
        printed = subprocess.run(
            [PROGRAMS / "bench_alternate", str(runs), given.name, built, EMPTY], text=True,
            check=True, stdout=subprocess.PIPE, env={**os.environ, **variables}).stdout
    return [[float(number) for number in line.split()] for line in printed.splitlines()]


def row(name, program, method, path, body="", runs=RUNS, built=BUILT, tag=""):
    (time_us, peak_kb), (empty_us, _) = measure(program, method, path, body, runs, built, tag)
    print(f"{name:<34}{time_us:>10.0f}{empty_us:>10.0f}{time_us / empty_us:>8.2f}{peak_kb:>12.0f}",
          flush=True)


def create_tasks(program, count):
    for _ in range(count):
        if program.create(BODY).status != 0:
            sys.exit("bench: a task was refused")


def add_channels(program):
    for index in range(CHANNELS):
        (RECORDINGS / str(index)).mkdir(parents=True)
        program.add_channel(index, f"Camera {index}", RECORDINGS / str(index), streams=2)


def record_days(first, last):
    """Gives every channel recordings of the days from `first` to `last - 1` days ago."""
    for back in range(first, last):
        day = str(date.today() - timedelta(back))
        for index in range(CHANNELS):
            folder = RECORDINGS / str(index) / day
            folder.mkdir()
            for hour in (0, 6, 12, 18) if back < DAYS_WITH_FOUR else (12,):
                (folder / f"{hour:02}-00-00.mp4").touch()


def print_channels(program):
    """With what earlier requests have found; and where that cannot be kept, so without."""
    print(f"\n{CHANNELS} channels with four recordings a day, median of {CHANNEL_RUNS} runs")
    add_channels(program)
    index = STATE / "recordings.index"
    recorded = 0
    for days in CHANNEL_DAYS:
        record_days(recorded, days)
        recorded = days
        time.sleep(SETTLED_SECONDS)
        row(f"GET /channel, {days} days", program, "GET", "/channel", runs=CHANNEL_RUNS)
        index.unlink()
        index.mkdir()
        row("... all folders read", program, "GET", "/channel", runs=FULL_LOOKS)
        index.rmdir()


def requests_per_second(program):
    printed = subprocess.run(
        ["/usr/bin/ab", "-q", "-n", str(WEB_REQUESTS), "-c", str(WEB_CLIENTS),
         f"http://127.0.0.1:{PORT}/cgi-bin/{CGI.name}/fuse?sid={program.sid}"],
        text=True, check=True, stdout=subprocess.PIPE).stdout
    if not re.search(r"^Failed requests: +0$", printed, re.M) or "Non-2xx" in printed:
        sys.exit(f"bench: Apache did not answer every request:\n{printed}")
    return float(re.search(r"Requests per second: +([\d.]+)", printed).group(1))


def tag_of_tasks(program):
    """Of the reply that the console gives while the daemon has nothing to write."""
    tag = None
    while tag != (tag := tag_of_reply(program)):
        time.sleep(2)  # it looks at new tasks once a second
    return tag


def tag_of_reply(program):
    variables = {"REQUEST_METHOD": "GET", "PATH_INFO": "/tasks", "QUERY_STRING": "poll=1",
                 "HTTP_COOKIE": "sid=" + program.sid}
    said = subprocess.run([CONSOLE], text=True, check=True, stdout=subprocess.PIPE,
                          env={**program.environment, **variables}).stdout
    return re.search("(?m)^ETag: (.*)$", said)[1]


def print_console(program):
    tag = tag_of_tasks(program)
    row("console: GET /session", program, "GET", "/session", built=CONSOLE)
    row(f"console: GET /tasks, {CONSOLE_TASKS} tasks", program, "GET", "/tasks", built=CONSOLE)
    row("console: the same, unchanged (304)", program, "GET", "/tasks", built=CONSOLE, tag=tag)


def print_requests(program):
    print(f"median of {RUNS} runs, in turn with an empty static C program")
    print(f"{'route':<34}{'us':>10}{'empty us':>10}{'ratio':>8}{'peak kB':>12}")
    row("GET /fuse", program, "GET", "/fuse")
    row("GET /task, no tasks", program, "GET", "/task")
    create_tasks(program, CONSOLE_TASKS)
    print_console(program)
    row("PUT /task", program, "PUT", "/task", BODY)
    row("POST /task/<id>", program, "POST", "/task/1", BODY)
    create_tasks(program, TASKS - RUNS - CONSOLE_TASKS)
    row(f"GET /task/status/<id>, {TASKS} tasks", program, "GET", f"/task/status/{TASKS}")
    row(f"GET /task, {TASKS} tasks", program, "GET", "/task")


def print_web(program):
    cgi = requests_per_second(program)
    # The web server starts nothing but the one program, so the empty one takes its place.
    subprocess.run(["install", "-m", "4750", "-g", "www-data", EMPTY, CGI], check=True)
    empty = requests_per_second(program)
    print(f"\nbehind Apache, {WEB_REQUESTS} requests from {WEB_CLIENTS} clients")
    print(f"{'GET /fuse':<34}{cgi:>10.0f} requests a second")
    print(f"{'empty program':<34}{empty:>10.0f} requests a second, ratio {empty / cgi:.2f}")


def main():
    program = CgiProgram(STATE)
    with ended_afterwards(start_recorder(PORT)):
        print_requests(program)
        print_channels(program)
        print_web(program)


main()
