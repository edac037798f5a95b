"""A service that says it is ready can be told to end from then on."""
import fcntl
import os
import signal
import subprocess

import pytest

from failing_folder import DEVICE, hanging_folder
from places import PROGRAMS
from processes import WRITE_OUTPUT, is_in_call
from service_process import end, ended_afterwards, start_service
from state_folder import StateFolder
from waiting import SECONDS, wait_until


def full_pipe():
    """Its two ends; whoever writes to it waits until somebody reads."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    try:
        while True:
            os.write(writing, b"\n" * fcntl.fcntl(writing, fcntl.F_GETPIPE_SZ))
    except BlockingIOError:
        os.set_blocking(writing, True)
    return reading, writing


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
            wait_until(lambda: is_in_call(process.pid, WRITE_OUTPUT), "the announcement")
            process.send_signal(number)
            assert output.read().strip().startswith(f"{program}: listening on 127.0.0.1, port")
            assert process.wait(SECONDS) == 0


@pytest.mark.skipif(not os.path.exists(DEVICE), reason="no file system in user space here")
def test_the_daemon_ends_in_an_orderly_way_while_a_folder_of_recordings_hangs(tmp_path):
    state = StateFolder(tmp_path / "state").init()
    folder = tmp_path / "recordings"
    folder.mkdir()
    state.add_channel(0, "Camera 0", folder)
    with hanging_folder(folder), ended_afterwards(
            start_service("recording-backupd", state)) as daemon:
        assert end(daemon) == 0
