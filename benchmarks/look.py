"""What a run costs before it copies: the daemon's look at ten years of days of many cameras."""
import os
import shutil
import sqlite3
import statistics
import sys
import tempfile
import time
from contextlib import closing
from dataclasses import dataclass
from datetime import date, timedelta
from pathlib import Path

from benchmarks.report import Column
from cgi_program import CgiProgram
from places import STATE, STORAGE
from replies import SUCCESS
from samba_server import USER, SambaServer
from sample_task import NEVER, task_body
from service_process import running

SHARE = Path("/tmp/share")
RECORDINGS = STORAGE / "bench"
CAMERAS = 128
DAYS = 3650
NEW_FILES = 8
ROUNDS = 5  # the first copies what is older, the second reads a sample of that
LAST_DAY = {"backupType": "BackupByLastDay", "backupDays": 1}
ALL_DAYS = {"backupType": "BackupByTimeRange", "backupStartDay": 0}


@dataclass
class Scene:
    """Cameras with ten years of days, and which of them the task is for."""
    name: str
    cameras: int
    days: dict
    recorded: bool  # each day has a recording; otherwise its folder is empty


SCENES = [Scene(f"{CAMERAS} cameras, task for the last day", CAMERAS, LAST_DAY, True),
          Scene("4 cameras, all days, empty", 4, ALL_DAYS, False),
          Scene(f"{CAMERAS} cameras, all days, empty", CAMERAS, ALL_DAYS, False),
          Scene("1 camera, all days, a recording each", 1, ALL_DAYS, True)]


def make_days(scene):
    today = date.today()  # another one may begin meanwhile
    shutil.rmtree(RECORDINGS, ignore_errors=True)
    for camera in range(CAMERAS):
        (RECORDINGS / str(camera)).mkdir(parents=True)
    for camera in range(scene.cameras):
        for back in range(1, DAYS):
            day = RECORDINGS / str(camera) / str(today - timedelta(back))
            day.mkdir()
            if scene.recorded:
                (day / "12-00-00.mp4").write_bytes(b"x")


def record_new(number):
    """Recordings of today that no run before has seen."""
    day = RECORDINGS / "0" / str(date.today())
    day.mkdir(exist_ok=True)
    for second in range(NEW_FILES):
        (day / f"00-{number:02}-{second:02}.mp4").write_bytes(b"new")


def settings(scene, server, folder):
    return task_body(
        taskName=scene.name, serverIP="127.0.0.1", port=server.port, username=USER,
        password=server.password, destPath=f"/backup/{folder}",
        chIdxList=list(range(scene.cameras)), backupImmediately=True,
        recordingType="recording_and_alarm", recordingFormat="mp4", remoteKeepRec=False,
        remoteOverwriteType="stop_overwrite", **scene.days, **NEVER)


def cpu_seconds(process):
    fields = Path(f"/proc/{process.pid}/stat").read_text().rpartition(")")[2].split()
    return sum(map(int, fields[11:13])) / os.sysconf("SC_CLK_TCK")


def peak_mib(process):
    lines = Path(f"/proc/{process.pid}/status").read_text().splitlines()
    return next(int(line.split()[1]) for line in lines if line.startswith("VmHWM")) / 1024


def run_once(program, store, body):
    begin = time.monotonic()
    said = program.create(body).text
    if said != SUCCESS:
        sys.exit(f"bench: the task was refused: {said}")
    while True:
        status = store.execute("SELECT status FROM task ORDER BY taskID DESC").fetchone()[0]
        if status == 0:
            return time.monotonic() - begin
        if status in (5, 6):
            with closing(sqlite3.connect(STATE / "backupd.db", timeout=30)) as memory:
                sys.exit("bench: the run failed: " + memory.execute(
                    "SELECT message FROM run_progress ORDER BY taskID DESC").fetchone()[0])
        time.sleep(0.005)


def measure(scene, program, server):
    """Seconds and CPU seconds of the daemon of each run but the first two, and its most memory."""
    make_days(scene)
    folder = scene.name.replace(" ", "-").replace(",", "")
    database = sqlite3.connect(STATE / "config.db", timeout=30, isolation_level=None)
    with running("recording-backupd", program) as daemon, closing(database) as store:
        figures = []
        for number in range(ROUNDS):
            record_new(number)
            before = cpu_seconds(daemon)
            seconds = run_once(program, store, settings(scene, server, folder))
            figures.append((seconds, cpu_seconds(daemon) - before))
        return [statistics.median(column) for column in zip(*figures[2:])], peak_mib(daemon)


def main(report, asked):
    program = CgiProgram(STATE)
    for camera in range(CAMERAS):
        (RECORDINGS / str(camera)).mkdir(parents=True)
        program.add_channel(camera, f"Camera {camera}", RECORDINGS / str(camera))
    SHARE.mkdir()
    shares = {"backup": {"path": SHARE, "read only": "no", "force user": "root"}}
    report.table(f"a run that copies {NEW_FILES} files; {DAYS} days a camera, "
                 f"median of {ROUNDS - 2} runs", Column("seconds", "seconds", ".2f"),
                 Column("daemon_cpu_seconds", "CPU daemon", ".2f", 12),
                 Column("peak_mib", "peak MiB"))
    with SambaServer(tempfile.mkdtemp(prefix="samba"), shares, {}) as server:
        for scene in SCENES:
            if report.wants(scene.name) and not (asked.quick and scene.cameras > 4):
                (seconds, cpu), memory = measure(scene, program, server)
                report.row(scene.name, seconds=seconds, daemon_cpu_seconds=cpu, peak_mib=memory)
