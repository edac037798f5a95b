"""Fixtures: the program over a fresh state, and scripted servers on the recorder's fixed ports."""
import pytest

from cgi_program import Program
from scripted_server import CONFIGURATION_PORT, LOG_PORT, NOTICE_PORT, ScriptedServer


@pytest.fixture
def program(tmp_path):
    return Program(tmp_path / "state")


def serving(port):
    server = ScriptedServer(port)
    try:
        yield server
    finally:
        server.close()


@pytest.fixture
def daemon():
    yield from serving(NOTICE_PORT)


@pytest.fixture
def configuration_service():
    yield from serving(CONFIGURATION_PORT)


@pytest.fixture
def log_service():
    yield from serving(LOG_PORT)
