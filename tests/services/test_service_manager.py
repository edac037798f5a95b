"""What the services tell systemd: that they are ready, that their loop turns, that they end."""
import signal
import subprocess
import time
from contextlib import contextmanager

import pytest

from loopback import listens, request
from places import PROGRAMS
from processes import stat_fields
from service_manager import ALIVE, READY, STOPPING, ServiceManager
from service_process import ended_afterwards
from state_folder import StateFolder
from waiting import SECONDS, wait_until

SERVICES = [("recorder-logd", 10150), ("recording-backupd", 10206)]
PATIENCE = 0.4  # seconds


@pytest.fixture(name="state")
def state_folder(tmp_path):
    return StateFolder(tmp_path / "state").init()


def start(program, state, manager):
    return subprocess.Popen([PROGRAMS / program], stdout=subprocess.DEVNULL,
                            env={**state.environment, **manager.environment})


@contextmanager
def watched(program, state, folder):
    """The manager goes first: a service that tells its end waits for one that hears nothing more,
    once as much has been told as a socket holds."""
    manager = ServiceManager(folder, int(PATIENCE * 1e6))
    with ended_afterwards(start(program, state, manager)) as service, manager:
        yield manager, service


@pytest.mark.parametrize("program, port", SERVICES)
def test_ready_is_told_when_requests_are_answered_and_the_end_when_it_begins(
        tmp_path, state, program, port):
    with ServiceManager(tmp_path) as manager:
        with ended_afterwards(start(program, state, manager)) as service:
            assert manager.hear() == READY
            assert request(port, "GET", "/nothing").status == 404
            assert manager.is_silent_for(2 * PATIENCE), "nobody has asked for more"
            service.send_signal(signal.SIGTERM)
            assert manager.hear() == STOPPING
            assert service.wait(SECONDS) == 0


def test_a_service_that_cannot_serve_is_never_ready(tmp_path, state):
    (state.path / "config.db").unlink()
    with ServiceManager(tmp_path) as manager:
        assert start("recording-backupd", state, manager).wait(SECONDS) == 1
        assert not listens(10206) and manager.is_silent_for(PATIENCE)


@pytest.mark.parametrize("program", [program for program, _ in SERVICES])
def test_twice_in_the_time_it_is_given_a_service_tells_that_its_loop_turns(
        tmp_path, state, program):
    begin = time.monotonic()  # not when this process has time to hear that it is ready
    with watched(program, state, tmp_path) as (manager, _):
        assert manager.hear() == READY
        assert [manager.hear() for _ in range(6)] == [ALIVE] * 6
        assert time.monotonic() - begin > 2.4 * PATIENCE, "no oftener than is of use"


def test_what_hangs_tells_nothing(tmp_path, state):
    with watched("recorder-logd", state, tmp_path) as (manager, service):
        assert manager.hear() == READY
        service.send_signal(signal.SIGSTOP)
        wait_until(lambda: stat_fields(service.pid)[:1] == ["T"], "the process to stop")
        assert manager.is_silent_for(4 * PATIENCE)
        service.send_signal(signal.SIGCONT)
        assert manager.hear() == ALIVE
