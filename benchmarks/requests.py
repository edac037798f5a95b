"""What requests cost: each route's process beside an empty one, and the rate behind Apache."""
import json
import os
import re
import subprocess
import sys
import tempfile
from datetime import date, timedelta
from pathlib import Path

SOURCE = Path(os.environ["RECORDER_SOURCE"])
BUILD = Path(os.environ["RECORDER_BUILD"])
PROGRAMS = BUILD / "bin"
CGI = PROGRAMS / "recording_backup.cgi"
EMPTY = PROGRAMS / "bench_empty"
INSTALLED = Path("/home/httpd/cgi-bin/recording_backup.cgi")
PORT = 8080
RUNS = 300
TASKS = 1000
CHANNELS = 128
CHANNEL_DAYS = (30, 365)
CHANNEL_RUNS = 20
RECORDINGS = Path("/storage/bench")
WEB_REQUESTS = 2000
WEB_CLIENTS = 4

TASK = {
    "taskName": "Bench", "serverIP": "127.0.0.1", "port": 445, "username": "u", "password": "p",
    "destPath": "/share/folder", "chIdxList": [0, 1, 2, 3], "backupType": "BackupByLastDay",
    "backupDays": 7, "backupImmediately": False, "scheduleType": "daily", "scheduleWeekly": 0,
    "scheduleHour": 1, "scheduleMin": 30, "scheduleEveryHours": 0, "recordingType": "recording",
    "recordingFormat": "mp4", "remoteKeepRec": False, "remoteKeepRecDays": 0,
    "remoteOverwriteType": "stop_overwrite",
}


def control(*arguments, given=None):
    command = [PROGRAMS / "recorderctl", *arguments]
    return subprocess.run(command, input=given, text=True, check=True, capture_output=True).stdout


def environment(session, method, path, body):
    return {
        **os.environ, "REQUEST_METHOD": method, "PATH_INFO": path,
        "QUERY_STRING": f"sid={session}", "CONTENT_LENGTH": str(len(body)),
    }


def measure(session, method, path, body, runs):
    """Times and peak memories of the CGI program and of the empty one, run in turn."""
    with tempfile.NamedTemporaryFile("w") as given:
        given.write(body)
        given.flush()
        printed = subprocess.run(
            [PROGRAMS / "bench_alternate", str(runs), given.name, CGI, EMPTY], text=True,
            check=True,
            stdout=subprocess.PIPE, env=environment(session, method, path, body)).stdout
    return [[float(number) for number in line.split()] for line in printed.splitlines()]


def row(name, session, method, path, body="", runs=RUNS):
    (time_us, peak_kb), (empty_us, _) = measure(session, method, path, body, runs)
    print(f"{name:<34}{time_us:>10.0f}{empty_us:>10.0f}{time_us / empty_us:>8.2f}{peak_kb:>12.0f}",
          flush=True)


def create_tasks(session, count):
    body = json.dumps(TASK)
    for _ in range(count):
        subprocess.run([CGI], input=body, text=True, check=True, stdout=subprocess.DEVNULL,
                       env=environment(session, "PUT", "/task", body))


def add_channels():
    for index in range(CHANNELS):
        control("channel", "add", "--index", str(index), "--guid", f"bench-{index}",
                "--ip", "192.0.2.1", "--name", f"Camera {index}", "--brand", "Bench",
                "--model", "B", "--streams", "2", "--recordings", str(RECORDINGS / str(index)))


def record_days(first, last):
    """Gives every channel recordings of the days from `first` to `last - 1` days ago."""
    for back in range(first, last):
        day = str(date.today() - timedelta(back))
        for index in range(CHANNELS):
            folder = RECORDINGS / str(index) / day
            folder.mkdir(parents=True)
            for hour in (0, 6, 12, 18):
                (folder / f"{hour:02}-00-00.mp4").touch()


def print_channels(session):
    print(f"\n{CHANNELS} channels with four recordings a day, median of {CHANNEL_RUNS} runs")
    add_channels()
    recorded = 0
    for days in CHANNEL_DAYS:
        record_days(recorded, days)
        recorded = days
        row(f"GET /channel, {days} days", session, "GET", "/channel", runs=CHANNEL_RUNS)


def requests_per_second(session):
    printed = subprocess.run(
        ["/usr/bin/ab", "-q", "-n", str(WEB_REQUESTS), "-c", str(WEB_CLIENTS),
         f"http://127.0.0.1:{PORT}/cgi-bin/{INSTALLED.name}/fuse?sid={session}"],
        text=True, check=True,
        stdout=subprocess.PIPE).stdout
    if not re.search(r"^Failed requests: +0$", printed, re.M) or "Non-2xx" in printed:
        sys.exit(f"bench: Apache did not answer every request:\n{printed}")
    return float(re.search(r"Requests per second: +([\d.]+)", printed).group(1))


def print_requests(session):
    print(f"median of {RUNS} runs, in turn with an empty static C program")
    print(f"{'route':<34}{'us':>10}{'empty us':>10}{'ratio':>8}{'peak kB':>12}")
    row("GET /fuse", session, "GET", "/fuse")
    row("GET /task, no tasks", session, "GET", "/task")
    row("PUT /task", session, "PUT", "/task", json.dumps(TASK))
    row("POST /task/<id>", session, "POST", "/task/1", json.dumps(TASK))
    create_tasks(session, TASKS - RUNS)
    row(f"GET /task/status/<id>, {TASKS} tasks", session, "GET", f"/task/status/{TASKS}")
    row(f"GET /task, {TASKS} tasks", session, "GET", "/task")


def print_web(session):
    cgi = requests_per_second(session)
    # The web server starts nothing but the one program, so the empty one takes its place.
    subprocess.run(["install", "-m", "4750", "-g", "www-data", EMPTY, INSTALLED], check=True)
    empty = requests_per_second(session)
    print(f"\nbehind Apache, {WEB_REQUESTS} requests from {WEB_CLIENTS} clients")
    print(f"{'GET /fuse':<34}{cgi:>10.0f} requests a second")
    print(f"{'empty program':<34}{empty:>10.0f} requests a second, ratio {empty / cgi:.2f}")


def serve():
    """Starts the recorder; returns its process once it is ready."""
    server = subprocess.Popen([SOURCE / "scripts/serve", "--port", str(PORT)], text=True,
                              stdout=subprocess.PIPE)
    if not server.stdout.readline().startswith("ready"):
        sys.exit("bench: the recorder did not start")
    return server


def main():
    control("init")
    control("user", "add", "bench", given="bench\n")
    session = control("session", "open", "bench").strip()
    server = serve()
    try:
        print_requests(session)
        print_channels(session)
        print_web(session)
    finally:
        server.terminate()
        server.wait()


main()
