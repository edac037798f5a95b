"""How often a request waits for the disk, counted."""
import re
import statistics
import subprocess
import tempfile
from itertools import cycle, islice

FLUSH = re.compile(r"^SYSCALL\[[^\n]*\bsys_(?:fsync|fdatasync|msync|syncfs|sync)\b", re.M)
LOOKS = 5  # of which some few also move pages from the write-ahead file to the database


def count_flushes(runner, path):
    """Of one run of the program, by the process itself."""
    with tempfile.NamedTemporaryFile("r", errors="replace") as log, open(path) as given:
        subprocess.run([*runner.inside, "valgrind", "--tool=none", "--trace-syscalls=yes",
                        f"--log-file={log.name}", runner.program], stdin=given, check=True,
                       stdout=subprocess.DEVNULL, env=runner.environment)
        return len(FLUSH.findall(log.read()))


def usual_flushes(runner):
    inputs = islice(cycle(runner.inputs), LOOKS)
    return statistics.median_low(count_flushes(runner, path) for path in inputs)
