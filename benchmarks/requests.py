"""What a request costs: each route's whole-process time beside an empty program's, and the rate behind Apache."""
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

SOURCE = Path(os.environ["RECORDER_SOURCE"])
BUILD = Path(os.environ["RECORDER_BUILD"])
PROGRAMS = BUILD / "bin"
CGI = PROGRAMS / "recording_backup.cgi"
EMPTY = PROGRAMS / "bench_empty"
PORT = 8080
RUNS = 300
TASKS = 1000
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


def measure(session, method, path, body=""):
    """Times and peak memories of the CGI program and of the empty one, run in turn."""
    with tempfile.NamedTemporaryFile("w") as given:
        given.write(body)
        given.flush()
        printed = subprocess.run(
            [PROGRAMS / "bench_alternate", str(RUNS), given.name, CGI, EMPTY], text=True, check=True,
            stdout=subprocess.PIPE, env=environment(session, method, path, body)).stdout
    return [[float(number) for number in line.split()] for line in printed.splitlines()]


def row(name, session, method, path, body=""):
    (time_us, peak_kb), (empty_us, _) = measure(session, method, path, body)
    print(f"{name:<34}{time_us:>10.0f}{empty_us:>10.0f}{time_us / empty_us:>8.2f}{peak_kb:>12.0f}",
          flush=True)


def create_tasks(session, count):
    body = json.dumps(TASK)
    for _ in range(count):
        subprocess.run([CGI], input=body, text=True, check=True, stdout=subprocess.DEVNULL,
                       env=environment(session, "PUT", "/task", body))


def requests_per_second(path):
    printed = subprocess.run(
        ["/usr/bin/ab", "-q", "-n", str(WEB_REQUESTS), "-c", str(WEB_CLIENTS),
         f"http://127.0.0.1:{PORT}/cgi-bin/{path}"], text=True, check=True,
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
    cgi = requests_per_second(f"recording_backup.cgi/fuse?sid={session}")
    empty = requests_per_second("bench_empty.cgi")
    print(f"\nbehind Apache, {WEB_REQUESTS} requests from {WEB_CLIENTS} clients")
    print(f"{'GET /fuse':<34}{cgi:>10.0f} requests a second")
    print(f"{'empty program':<34}{empty:>10.0f} requests a second, ratio {empty / cgi:.2f}")


def serve():
    """Starts the recorder; returns its process once it is ready."""
    subprocess.run(["install", "-D", "-m", "755", EMPTY, "/home/httpd/cgi-bin/bench_empty.cgi"],
                   check=True)
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
        print_web(session)
    finally:
        server.terminate()
        server.wait()


main()
