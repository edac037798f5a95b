"""What the services say under scripts/serve is kept in files of a bounded size."""
from pathlib import Path

import pytest

from places import LOGS, STATE
from processes import parent_of, processes
from service_process import ended_afterwards, start_recorder
from waiting import wait_until
from web_logs import log_lines

PORT = 8080
MEBIBYTE = 1024 * 1024
LINES = 50_000
WHO_WRITES = {"recorder-logd": "recorder-logd", "recording-backupd": "recording-backupd",
              "apache2": "httpd", "smbd": "demo-share"}


@pytest.fixture(name="server")
def demo_recorder():
    with ended_afterwards(start_recorder(PORT, "--demo", STATE)) as process:
        yield process


def say(server, program, lines):
    """Has the program's own standard output say this."""
    pid, = [pid for pid, command in processes() if parent_of(pid) == server.pid
            and Path(command.split(b" ")[0].decode()).name == program]
    with open(f"/proc/{pid}/fd/1", "w") as output:
        output.writelines(lines)


def log_bytes(name):
    """Of all files of this log; several names of one file count once."""
    files = {entry.stat().st_ino: entry.stat().st_size for entry in LOGS.glob(f"{name}*")}
    return sum(files.values())


@pytest.mark.parametrize("program, name", WHO_WRITES.items())
def test_however_much_a_service_says_its_logs_stay_small_and_end_with_the_newest(server, program,
                                                                                 name):
    say(server, program, (f"line {number} {'x' * 100}\n" for number in range(LINES)))
    say(server, program, ["the last line\n"])
    wait_until(lambda: "the last line" in log_lines(f"{name}.log"), "the last line")
    assert log_bytes(name) < 4 * MEBIBYTE
    kept = [line for file in ("", ".1", ".2") for line in log_lines(name + file)
            if line.startswith("line ")]
    newest = sorted(int(line.split()[1]) for line in kept)[-10_000:]
    assert newest == list(range(LINES - 10_000, LINES))
