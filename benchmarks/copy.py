"""What copying costs: the backup daemon beside smbclient, rclone and cp, onto one Samba share."""
import contextlib
import os
import shutil
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time
from collections import Counter
from contextlib import closing
from dataclasses import dataclass, field
from datetime import date
from pathlib import Path
from threading import Event, Thread

from benchmarks.report import Column
from cgi_program import CgiProgram
from delay_proxy import DelayProxy
from places import STATE, STORAGE
from processes import descendants
from replies import SUCCESS
from request_proxy import RequestProxy
from sample_task import NEVER, task_body
from samba_server import USER, SambaServer
from service_process import running

SHARE = Path("/tmp/share")

KIB = 1024
MIB = 1024 * KIB
DAY = STORAGE / "0" / date.today().isoformat()
AUTHENTICATION = Path("/tmp/authentication")


@dataclass
class Scene:
    """What is copied, how often, and over which line to which server."""
    name: str
    files: int
    size: int
    rounds: int = 5
    settings: dict = field(default_factory=dict)  # the server's, as smb.conf(5) has them
    round_trip: float = 0                         # seconds; 0: no proxy between
    counted: bool = False                         # requests are, by a proxy; they cannot be sealed
    others: bool = False                          # rclone and cp copy, too


def scenes(quick):
    small = 200 if quick else 5000
    far = 20 if quick else 200
    rounds = 1 if quick else 3
    signed, sealed = {"server signing": "mandatory"}, {"smb encrypt": "required"}
    found = [Scene("large", 4 if quick else 24, 48 * MIB, 1 if quick else 5, others=True),
             Scene("small", small, 20 * KIB, rounds),
             Scene("small, counted", far, 20 * KIB, 1, counted=True),
             Scene("large, signed", 4, 48 * MIB, rounds, signed),
             Scene("small, signed", small // 5, 20 * KIB, rounds, signed),
             Scene("large, sealed", 4, 48 * MIB, rounds, sealed),
             Scene("small, sealed", small // 5, 20 * KIB, rounds, sealed)]
    for milliseconds in (1, 10, 40):
        line = {"rounds": 1, "round_trip": milliseconds / 1000}
        found += [Scene(f"large, {milliseconds} ms", 4, 48 * MIB, **line),
                  Scene(f"small, {milliseconds} ms", far, 20 * KIB, **line)]
    return found


def record(scene):
    shutil.rmtree(DAY, ignore_errors=True)
    DAY.mkdir(parents=True)
    for number in range(scene.files):
        hours, rest = divmod(number, 3600)
        block = os.urandom(min(MIB - 13, scene.size))
        with open(DAY / f"{hours:02}-{rest // 60:02}-{rest % 60:02}.mp4", "wb") as file:
            for _ in range(scene.size // len(block)):
                file.write(block)
            file.write(block[:scene.size % len(block)])


def cpu_seconds(process):
    """Of a process and those below it, with those that have ended."""
    ticks = 0
    for pid in descendants(process.pid):
        with contextlib.suppress(OSError):
            text = Path(f"/proc/{pid}/stat").read_text()
            ticks += sum(map(int, text.rpartition(")")[2].split()[11:15]))
    return ticks / os.sysconf("SC_CLK_TCK")


def settings(server, port, folder):
    return task_body(
        taskName=folder, serverIP="127.0.0.1", port=port, username=USER,
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

    def __init__(self, server, port, program, store):
        self.server, self.port, self.program, self.store = server, port, program, store

    def daemon(self, folder, check):
        self.program.ctl("config", "set", "backup", "check_reading", "1" if check else "0")
        begin = time.monotonic()
        create(self.program, settings(self.server, self.port, folder))
        wait_for_success(self.store)
        return time.monotonic() - begin

    def timed(self, command, **environment):
        begin = time.monotonic()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       env={**os.environ, **environment})
        return time.monotonic() - begin

    def smbclient(self, folder):
        return self.timed(["smbclient", "-A", AUTHENTICATION, "-p", str(self.port),
                           "//127.0.0.1/backup", "-c",
                           f"mkdir {folder}; cd {folder}; lcd {DAY}; prompt; mput *"])

    def rclone(self, folder):
        hidden = subprocess.run(["rclone", "obscure", "-"], input=self.server.password, text=True,
                                check=True, stdout=subprocess.PIPE).stdout.strip()
        return self.timed(["rclone", "copy", DAY, f":smb:backup/{folder}"], RCLONE_CONFIG="",
                          RCLONE_SMB_HOST="127.0.0.1", RCLONE_SMB_PORT=str(self.port),
                          RCLONE_SMB_USER=USER, RCLONE_SMB_PASS=hidden)

    def cp(self, folder):
        return self.timed(["cp", "-r", DAY, SHARE / folder])


def check_copy(folder):
    """The last number is worth nothing if the bytes are wrong."""
    copies = sorted((SHARE / folder).rglob("*.mp4"))
    for source, copy in zip(sorted(DAY.iterdir()), copies, strict=True):
        subprocess.run(["cmp", source, copy], check=True)


def memory(process):
    """Of a process and those below it, in MiB; what they share counts once."""
    kib = 0
    for pid in descendants(process.pid):
        with contextlib.suppress(OSError):
            for line in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines():
                if line.startswith("Pss:"):
                    kib += int(line.split()[1])
    return kib / KIB


class Watch:
    """Looks at the daemon and its copying processes: their most memory, and how many there were."""

    def __init__(self, daemon):
        self.daemon, self.ended = daemon, Event()
        self.memory = self.processes = 0

    def look(self):
        while not self.ended.wait(0.1):
            self.memory = max(self.memory, memory(self.daemon))
            self.processes = max(self.processes, len(descendants(self.daemon.pid)) - 1)

    def __enter__(self):
        self.thread = Thread(target=self.look)
        self.thread.start()
        return self

    def __exit__(self, *unused):
        self.ended.set()
        self.thread.join()


def ways_of(copiers, scene):
    ways = {"backup daemon, check reading off": lambda folder: copiers.daemon(folder, False),
            "backup daemon, check reading on": lambda folder: copiers.daemon(folder, True),
            "smbclient mput": copiers.smbclient}
    if scene.others:
        ways |= {"rclone copy": copiers.rclone, "cp (no share)": copiers.cp}
    return ways


@contextlib.contextmanager
def line(scene, server):
    """The port that the copiers use, and what counts their requests."""
    if scene.counted:
        with RequestProxy(server.port) as proxy:
            yield proxy.port, proxy.requests
    elif scene.round_trip:
        with DelayProxy(server.port, scene.round_trip) as proxy:
            yield proxy.port, Counter()
    else:
        yield server.port, Counter()


def measure(scene, copiers, programs, requests):
    """Seconds, CPU seconds of each program, and requests a file, of each way in each round."""
    figures = {}
    for number in range(scene.rounds):
        for place, (name, way) in enumerate(ways_of(copiers, scene).items()):
            folder = f"round{number}way{place}"
            requests.clear()
            before = [cpu_seconds(program) for program in programs]
            seconds = way(folder)
            cpu = [cpu_seconds(program) - at for program, at in zip(programs, before)]
            figures.setdefault(name, []).append(
                (seconds, *cpu, sum(requests.values()) / scene.files))
            check_copy(folder)
            subprocess.run(["rm", "-rf", SHARE / folder], check=True)
    return figures


COLUMNS = [Column("seconds", "seconds", ".2f", 9), Column("least", "least", ".2f", 8),
           Column("most", "most", ".2f", 8), Column("of_smbclient", "of smbclient", ".2f", 14),
           Column("daemon_cpu_seconds", "CPU daemon", ".2f", 12),
           Column("server_cpu_seconds", "CPU server", ".2f", 12),
           Column("requests_a_file", "requests", ".1f"), Column("memory_mib", "peak MiB"),
           Column("processes", "processes")]


def tell_figures(scene, figures, report):
    report.table(f"{scene.name}: {scene.files} files of {scene.size // KIB} KiB, "
                 f"{scene.rounds} rounds", *COLUMNS, width=48)
    median = {name: [statistics.median(column) for column in zip(*rounds)]
              for name, rounds in figures.items()}
    for name, rounds in figures.items():
        seconds, daemon, server, requests = median[name]
        times = [one[0] for one in rounds]
        report.row(f"{scene.name}: {name}", seconds=seconds, least=min(times), most=max(times),
                   of_smbclient=seconds / median["smbclient mput"][0], daemon_cpu_seconds=daemon,
                   server_cpu_seconds=server,
                   **({"requests_a_file": requests} if scene.counted else {}))


def run(scene, program, daemon, store, report):
    record(scene)
    shares = {"backup": {"path": SHARE, "read only": "no", "force user": "root"}}
    with SambaServer(tempfile.mkdtemp(prefix="samba"), shares, scene.settings) as server:
        AUTHENTICATION.write_text(f"username={USER}\npassword={server.password}\n")
        with line(scene, server) as (port, requests):
            copiers = Copiers(server, port, program, store)
            with Watch(daemon) as watch:
                figures = measure(scene, copiers, (daemon, server.process), requests)
            tell_figures(scene, figures, report)
            report.row(f"{scene.name}: daemon and its processes", memory_mib=watch.memory,
                       processes=watch.processes)


def main(report, asked):
    program = CgiProgram(STATE)
    DAY.mkdir(parents=True)
    program.add_channel(0, "Bench", DAY.parent)
    SHARE.mkdir()
    with running("recording-backupd", program) as daemon:
        store = sqlite3.connect(STATE / "config.db", timeout=30, isolation_level=None)
        for scene in scenes(asked.quick):
            if report.wants(scene.name):
                run(scene, program, daemon, store, report)
