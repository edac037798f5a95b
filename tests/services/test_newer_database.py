"""A database that a newer version has made: the services say so, with a status of its own."""
import socket
import sqlite3
import subprocess
from contextlib import closing

import pytest

from service_process import with_sockets
from state_folder import StateFolder
from waiting import SECONDS

NOT_TO_BE_REPEATED = 78  # the units name it in RestartPreventExitStatus=


each_database = pytest.mark.parametrize("program, database", [
    ("recorder-logd", "events.db"), ("recording-backupd", "config.db"),
    ("recording-backupd", "backupd.db"), ("recording-backupd", "registry.db")])


def state_with_newer(folder, database):
    state = StateFolder(folder / "state").init()
    with closing(sqlite3.connect(state.path / database)) as connection:
        connection.execute("PRAGMA user_version = 99")
    return state


@each_database
def test_a_service_leaves_it_as_it_is_and_need_not_be_started_again(tmp_path, program, database):
    state = state_with_newer(tmp_path, database)
    path = state.path / database
    before = path.read_bytes()
    done = state.run(program)
    assert (done.returncode, done.stdout) == (NOT_TO_BE_REPEATED, "")
    assert done.stderr.startswith(f"{program}: {path} has schema 99, this program knows")
    assert path.read_bytes() == before


def nobody_waits(listener):
    listener.setblocking(False)
    try:
        listener.accept()
    except BlockingIOError:
        return True
    return False


@each_database
def test_a_service_leaves_nobody_waiting_for_whom_systemd_would_start_it_anew(
        tmp_path, program, database):
    state = state_with_newer(tmp_path, database)
    with socket.create_server(("127.0.0.1", 0)) as one, \
            socket.create_server(("127.0.0.1", 0)) as other:
        clients = [socket.create_connection(listener.getsockname(), timeout=SECONDS)
                   for listener in (one, other) for _ in range(3)]
        command, passing = with_sockets(program, [one, other])
        done = subprocess.run(command, env=state.environment, capture_output=True, text=True,
                              timeout=SECONDS, check=False, **passing)
        assert nobody_waits(one) and nobody_waits(other)
        assert [client.recv(1) for client in clients] == [b""] * len(clients)
    assert (done.returncode, done.stderr.count("\n")) == (NOT_TO_BE_REPEATED, 1)
