"""What requests are measured beside: a program that answers as the recorder does, and no more."""
import os
import subprocess
from contextlib import contextmanager
from pathlib import Path

from cgi_program import CgiProgram
from places import PROGRAMS
from waiting import SECONDS, wait_until

EMPTY = PROGRAMS / "bench_empty"
NOBODY = 65534


@contextmanager
def full_pipe():
    """Whoever writes to it waits."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    try:
        while True:
            os.write(writing, bytes(4096))
    except BlockingIOError:
        os.set_blocking(writing, True)
    yield writing
    os.close(reading)
    os.close(writing)


def users(process):
    """The real, the effective, the saved one and that of files."""
    lines = Path(f"/proc/{process}/status").read_text().splitlines()
    line, = [line for line in lines if line.startswith("Uid:")]
    return [int(user) for user in line.split()[1:]]


def test_it_prints_what_the_recorder_does(tmp_path):
    recorder = CgiProgram(tmp_path / "state")
    done = subprocess.run([EMPTY], capture_output=True, timeout=SECONDS, check=True)
    assert done.stdout == recorder.request("GET", "/fuse").output


def test_who_has_started_it_may_not_signal_it():
    with full_pipe() as output, subprocess.Popen(
            ["setpriv", f"--ruid={NOBODY}", EMPTY], stdout=output) as empty:
        try:
            wait_until(lambda: Path(f"/proc/{empty.pid}/exe").resolve() == EMPTY.resolve()
                       and users(empty.pid) == [0, 0, 0, 0], "it to be root alone")
        finally:
            empty.kill()
