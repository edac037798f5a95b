"""A service that says it is ready can be told to end from then on."""
import fcntl
import os
import signal
import subprocess
from pathlib import Path

import pytest

from places import PROGRAMS
from service_process import ended_afterwards
from state_folder import StateFolder
from waiting import SECONDS, wait_until

HELD_PIPE = 4096


def full_pipe():
    """Its two ends; whoever writes to it waits until somebody reads."""
    reading, writing = os.pipe()
    fcntl.fcntl(writing, fcntl.F_SETPIPE_SZ, HELD_PIPE)
    assert os.write(writing, b"\n" * HELD_PIPE) == HELD_PIPE
    return reading, writing


def waits_for_a_reader(process):
    return "pipe_write" in Path(f"/proc/{process.pid}/wchan").read_text()


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
@pytest.mark.parametrize("program", ["recorder-logd", "recording-backupd"])
def test_a_service_ends_in_an_orderly_way_once_it_has_begun_to_say_that_it_is_ready(
        tmp_path, program, number):
    state = StateFolder(tmp_path / "state").init()
    reading, writing = full_pipe()
    with open(reading, encoding="ascii") as output:
        process = subprocess.Popen([PROGRAMS / program], env=state.environment, stdout=writing)
        os.close(writing)
        with ended_afterwards(process):
            wait_until(lambda: waits_for_a_reader(process), "the announcement")
            process.send_signal(number)
            assert output.read().strip().startswith(f"{program}: listening on 127.0.0.1, port")
            assert process.wait(SECONDS) == 0
