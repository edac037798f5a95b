"""What copying costs: the backup daemon beside smbclient, rclone and cp, onto one Samba share."""
import json
import os
import sqlite3
import statistics
import subprocess
import sys
import time
from contextlib import closing
from datetime import date
from pathlib import Path

SOURCE = Path(os.environ["RECORDER_SOURCE"])
BUILD = Path(os.environ["RECORDER_BUILD"])
PROGRAMS = BUILD / "bin"
STATE = Path("/var/lib/recorder")
sys.path.insert(0, str(SOURCE / "tests/support"))
from copy_target import USER, SambaServer  # noqa: E402

FILES = 24
MIB = 1024 * 1024
SIZE = 48 * MIB
ROUNDS = 5
DAY = Path("/storage/0") / date.today().isoformat()
AUTHENTICATION = Path("/tmp/authentication")


def control(*words, given=None):
    return subprocess.run([PROGRAMS / "recorderctl", *words], input=given, text=True, check=True,
                          capture_output=True).stdout


def record():
    DAY.mkdir(parents=True)
    for number in range(FILES):
        with open(DAY / f"{number:02}-00-00.mp4", "wb") as file:
            block = os.urandom(MIB - 13)
            for _ in range(SIZE // len(block)):
                file.write(block)
            file.write(block[:SIZE % len(block)])


def task_body(server, folder):
    return json.dumps({
        "taskName": folder, "serverIP": "127.0.0.1", "port": server.port, "username": USER,
        "password": server.password, "destPath": f"/backup/{folder}", "chIdxList": [0],
        "backupType": "BackupByLastDay", "backupDays": 0, "backupImmediately": True,
        "scheduleType": "daily", "scheduleWeekly": 0, "scheduleHour": 25, "scheduleMin": 0,
        "scheduleEveryHours": 0, "recordingType": "recording", "recordingFormat": "mp4",
        "remoteKeepRec": False, "remoteKeepRecDays": 0, "remoteOverwriteType": "stop_overwrite"})


def create(session, body):
    """The CGI program stores the task and has the daemon start it."""
    printed = subprocess.run(
        [PROGRAMS / "recording_backup.cgi"], input=body, text=True, stdout=subprocess.PIPE,
        env={**os.environ, "REQUEST_METHOD": "PUT", "PATH_INFO": "/task",
             "QUERY_STRING": f"sid={session}", "CONTENT_LENGTH": str(len(body))}).stdout
    if '"ret_code": 0' not in printed:
        sys.exit(f"bench: the task was refused: {printed}")


def why_it_failed():
    with closing(sqlite3.connect(STATE / "backupd.db", timeout=30)) as memory:
        return memory.execute("SELECT message FROM run_progress ORDER BY taskID DESC").fetchone()[0]


def wait_for_success(store):
    while True:
        status = store.execute("SELECT status FROM task ORDER BY taskID DESC").fetchone()[0]
        if status == 0:
            return
        if status in (5, 6):
            sys.exit("bench: the run failed: " + why_it_failed())
        time.sleep(0.005)


class Copiers:
    """Each copies all files into a folder of its own on the share."""

    def __init__(self, server, session, store):
        self.server, self.session, self.store = server, session, store

    def daemon(self, folder, check):
        control("config", "set", "backup", "check_reading", "1" if check else "0")
        begin = time.monotonic()
        create(self.session, task_body(self.server, folder))
        wait_for_success(self.store)
        return time.monotonic() - begin

    def timed(self, command, **environment):
        begin = time.monotonic()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       env={**os.environ, **environment})
        return time.monotonic() - begin

    def smbclient(self, folder):
        return self.timed(["smbclient", "-A", AUTHENTICATION, "-p", str(self.server.port),
                           "//127.0.0.1/backup", "-c",
                           f"mkdir {folder}; cd {folder}; lcd {DAY}; prompt; mput *"])

    def rclone(self, folder):
        hidden = subprocess.run(["rclone", "obscure", "-"], input=self.server.password, text=True,
                                check=True, stdout=subprocess.PIPE).stdout.strip()
        return self.timed(["rclone", "copy", DAY, f":smb:backup/{folder}"], RCLONE_CONFIG="",
                          RCLONE_SMB_HOST="127.0.0.1", RCLONE_SMB_PORT=str(self.server.port),
                          RCLONE_SMB_USER=USER, RCLONE_SMB_PASS=hidden)

    def cp(self, folder):
        return self.timed(["cp", "-r", DAY, self.server.path / folder])


def check_copy(server, folder):
    """The last number is worth nothing if the bytes are wrong."""
    copies = sorted((server.path / folder).rglob("*.mp4"))
    for source, copy in zip(sorted(DAY.iterdir()), copies, strict=True):
        subprocess.run(["cmp", source, copy], check=True)


def peak_memory(daemon):
    """Peak memory of the daemon itself, in kB; its copying processes are asked while they live."""
    for line in Path(f"/proc/{daemon.pid}/status").read_text().splitlines():
        if line.startswith("VmHWM:"):
            return int(line.split()[1])
    return 0


def measure(server, copiers):
    ways = {
        "backup daemon, check reading off": lambda folder: copiers.daemon(folder, False),
        "backup daemon, check reading on": lambda folder: copiers.daemon(folder, True),
        "smbclient mput": copiers.smbclient,
        "rclone copy": copiers.rclone,
        "cp (no share)": copiers.cp,
    }
    times = {name: [] for name in ways}
    for number in range(ROUNDS):
        for place, (name, way) in enumerate(ways.items()):
            folder = f"round{number}way{place}"
            times[name].append(way(folder))
            check_copy(server, folder)
            subprocess.run(["rm", "-rf", server.path / folder], check=True)
    return times


def print_times(times):
    print(f"{FILES} files of {SIZE // MIB} MiB, {ROUNDS} rounds in turn, seconds")
    print(f"{'':<36}{'median':>8}{'least':>8}{'most':>8}{'of smbclient':>14}{'of rclone':>11}")
    median = {name: statistics.median(values) for name, values in times.items()}
    for name, values in times.items():
        print(f"{name:<36}{median[name]:>8.2f}{min(values):>8.2f}{max(values):>8.2f}"
              f"{median[name] / median['smbclient mput']:>14.2f}"
              f"{median[name] / median['rclone copy']:>11.2f}")


def main():
    control("init")
    control("user", "add", "bench", given="bench\n")
    session = control("session", "open", "bench").strip()
    record()
    control("channel", "add", "--index", "0", "--guid", "g", "--ip", "192.0.2.1", "--name", "Bench",
            "--brand", "B", "--model", "M", "--streams", "1", "--recordings", str(DAY.parent))
    with SambaServer("/tmp/samba") as server:
        AUTHENTICATION.write_text(f"username={USER}\npassword={server.password}\n")
        daemon = subprocess.Popen([PROGRAMS / "recording-backupd"], stdout=subprocess.PIPE)
        daemon.stdout.readline()
        store = sqlite3.connect(STATE / "config.db", timeout=30, isolation_level=None)
        try:
            print_times(measure(server, Copiers(server, session, store)))
            print(f"peak memory of the daemon itself: {peak_memory(daemon)} kB")
        finally:
            daemon.terminate()
            daemon.wait()


main()
