"""How often a request waits for the disk, counted."""
import re
import sqlite3
import statistics
import subprocess
import tempfile
from contextlib import closing
from itertools import cycle, islice
from pathlib import Path

FLUSH = re.compile(r"^SYSCALL\[[^\n]*\bsys_(?:fsync|fdatasync|msync|syncfs|sync)\b", re.M)
LOOKS = 5  # of which some few also move pages from the write-ahead file to the database


EVENTS = "events.db"


def traced(runner, path):
    """The system calls of one run of the program, as valgrind tells them."""
    with tempfile.NamedTemporaryFile("r", errors="replace") as log, open(path) as given:
        subprocess.run([*runner.inside, "valgrind", "--tool=none", "--trace-syscalls=yes",
                        f"--log-file={log.name}", runner.program], stdin=given, check=True,
                       stdout=subprocess.DEVNULL, env=runner.environment)
        return log.read()


def stored_events(runner):
    with closing(sqlite3.connect(Path(runner.environment["RECORDER_STATE"], EVENTS))) as log:
        return log.execute("SELECT count(*) FROM event").fetchone()[0]


def count_flushes(runner, path):
    """Of one run of the program: by the process itself, and by the log service for each event that
    it stores for one that has not opened the event database."""
    before = stored_events(runner)
    calls = traced(runner, path)
    for_it = 0 if EVENTS in calls else stored_events(runner) - before
    return len(FLUSH.findall(calls)) + for_it


def usual_flushes(runner):
    inputs = islice(cycle(runner.inputs), LOOKS)
    return statistics.median_low(count_flushes(runner, path) for path in inputs)
