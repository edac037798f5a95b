"""What copying costs: the backup daemon beside smbclient, rclone and cp, onto one Samba share."""
import os
import sqlite3
import statistics
import subprocess
import sys
import time
from contextlib import closing
from datetime import date
from pathlib import Path

from cgi_program import CgiProgram
from places import STATE, STORAGE
from replies import SUCCESS
from sample_task import NEVER, task_body
from samba_server import USER, SambaServer
from service_process import running

SHARE = Path("/tmp/share")

FILES = 24
MIB = 1024 * 1024
SIZE = 48 * MIB
ROUNDS = 5
DAY = STORAGE / "0" / date.today().isoformat()
AUTHENTICATION = Path("/tmp/authentication")


def record():
    DAY.mkdir(parents=True)
    for number in range(FILES):
        with open(DAY / f"{number:02}-00-00.mp4", "wb") as file:
            block = os.urandom(MIB - 13)
            for _ in range(SIZE // len(block)):
                file.write(block)
            file.write(block[:SIZE % len(block)])


def settings(server, folder):
    return task_body(
        taskName=folder, serverIP="127.0.0.1", port=server.port, username=USER,
        password=server.password, destPath=f"/backup/{folder}", chIdxList=[0], backupDays=1,
        backupImmediately=True, recordingType="recording", recordingFormat="mp4",
        remoteKeepRec=False, remoteOverwriteType="stop_overwrite", **NEVER)


def create(program, body):
    """The CGI program stores the task and has the daemon start it."""
    said = program.create(body).text
    if said != SUCCESS:
        sys.exit(f"bench: the task was refused: {said}")


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

    def __init__(self, server, program, store):
        self.server, self.program, self.store = server, program, store

    def daemon(self, folder, check):
        self.program.ctl("config", "set", "backup", "check_reading", "1" if check else "0")
        begin = time.monotonic()
        create(self.program, settings(self.server, folder))
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
        return self.timed(["cp", "-r", DAY, SHARE / folder])


def check_copy(folder):
    """The last number is worth nothing if the bytes are wrong."""
    copies = sorted((SHARE / folder).rglob("*.mp4"))
    for source, copy in zip(sorted(DAY.iterdir()), copies, strict=True):
        subprocess.run(["cmp", source, copy], check=True)


def peak_memory(daemon):
    """Peak memory of the daemon itself, in kB; its copying processes are asked while they live."""
    for line in Path(f"/proc/{daemon.pid}/status").read_text().splitlines():
        if line.startswith("VmHWM:"):
            return int(line.split()[1])
    return 0


def measure(copiers):
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
            check_copy(folder)
            subprocess.run(["rm", "-rf", SHARE / folder], check=True)
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
    program = CgiProgram(STATE)
    record()
    program.add_channel(0, "Bench", DAY.parent)
    SHARE.mkdir()
    shares = {"backup": {"path": SHARE, "read only": "no", "force user": "root"}}
    with (SambaServer("/tmp/samba", shares) as server,
          running("recording-backupd", program) as daemon):
        AUTHENTICATION.write_text(f"username={USER}\npassword={server.password}\n")
        store = sqlite3.connect(STATE / "config.db", timeout=30, isolation_level=None)
        print_times(measure(Copiers(server, program, store)))
        print(f"peak memory of the daemon itself: {peak_memory(daemon)} kB")


main()
