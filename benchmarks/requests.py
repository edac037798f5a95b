"""What requests cost: each route's process beside an empty one, and the rate behind Apache."""
import os
import re
import subprocess
import sys
import tempfile
from datetime import date, timedelta

from cgi_program import CgiProgram, cgi_variables
from places import CGI, PROGRAMS, STATE, STORAGE
from sample_task import NEVER, task_body
from service_process import ended_afterwards, start_recorder

BUILT = PROGRAMS / "recording_backup.cgi"
EMPTY = PROGRAMS / "bench_empty"
PORT = 8080
RUNS = 300
TASKS = 1000
CHANNELS = 128
CHANNEL_DAYS = (30, 365)
CHANNEL_RUNS = 20
RECORDINGS = STORAGE / "bench"
WEB_REQUESTS = 2000
WEB_CLIENTS = 4

# As in earlier versions of this program, whose figures are compared with these.
BODY = task_body(taskName="Bench", serverIP="127.0.0.1", username="u", password="p",
                 destPath="/share/folder", chIdxList=[0, 1, 2, 3], recordingType="recording",
                 recordingFormat="mp4", remoteKeepRec=False, remoteKeepRecDays=0,
                 remoteOverwriteType="stop_overwrite", scheduleWeekly=0, scheduleMin=0,
                 scheduleEveryHours=0, **NEVER)


def measure(program, method, path, body, runs):
    """Times and peak memories of the CGI program and of the empty one, run in turn."""
    variables = cgi_variables(method, path, "sid=" + program.sid, len(body))
    with tempfile.NamedTemporaryFile("w") as given:
        given.write(body)
        given.flush()
        printed = subprocess.run(
            [PROGRAMS / "bench_alternate", str(runs), given.name, BUILT, EMPTY], text=True,
            check=True, stdout=subprocess.PIPE, env={**os.environ, **variables}).stdout
    return [[float(number) for number in line.split()] for line in printed.splitlines()]


def row(name, program, method, path, body="", runs=RUNS):
    (time_us, peak_kb), (empty_us, _) = measure(program, method, path, body, runs)
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
            folder.mkdir(parents=True)
            for hour in (0, 6, 12, 18):
                (folder / f"{hour:02}-00-00.mp4").touch()


def print_channels(program):
    print(f"\n{CHANNELS} channels with four recordings a day, median of {CHANNEL_RUNS} runs")
    add_channels(program)
    recorded = 0
    for days in CHANNEL_DAYS:
        record_days(recorded, days)
        recorded = days
        row(f"GET /channel, {days} days", program, "GET", "/channel", runs=CHANNEL_RUNS)


def requests_per_second(program):
    printed = subprocess.run(
        ["/usr/bin/ab", "-q", "-n", str(WEB_REQUESTS), "-c", str(WEB_CLIENTS),
         f"http://127.0.0.1:{PORT}/cgi-bin/{CGI.name}/fuse?sid={program.sid}"],
        text=True, check=True, stdout=subprocess.PIPE).stdout
    if not re.search(r"^Failed requests: +0$", printed, re.M) or "Non-2xx" in printed:
        sys.exit(f"bench: Apache did not answer every request:\n{printed}")
    return float(re.search(r"Requests per second: +([\d.]+)", printed).group(1))


def print_requests(program):
    print(f"median of {RUNS} runs, in turn with an empty static C program")
    print(f"{'route':<34}{'us':>10}{'empty us':>10}{'ratio':>8}{'peak kB':>12}")
    row("GET /fuse", program, "GET", "/fuse")
    row("GET /task, no tasks", program, "GET", "/task")
    row("PUT /task", program, "PUT", "/task", BODY)
    row("POST /task/<id>", program, "POST", "/task/1", BODY)
    create_tasks(program, TASKS - RUNS)
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
