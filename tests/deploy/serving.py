"""Starts scripts/serve for a test and ends it."""
import contextlib
import os
import subprocess
from pathlib import Path

SOURCE = Path(os.environ["RECORDER_SOURCE"])
SECONDS = 60  # generous: reached only by something that hangs


@contextlib.contextmanager
def serving(build, *options):
    """Yields the process once it has said that it is ready."""
    process = subprocess.Popen([SOURCE / "scripts/serve", "--build", build, *options], text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        line = process.stdout.readline()
        assert line.startswith("ready on http://127.0.0.1:"), line + process.stdout.read()
        yield process
    finally:
        process.terminate()
        process.communicate(timeout=SECONDS)
