"""Fixtures: the program over a fresh state, and scripted servers on the recorder's fixed ports."""
import os

import pytest

from cgi_program import CgiProgram
from scripted_server import CONFIGURATION_PORT, LOG_PORT, NOTICE_PORT, ScriptedServer
from stand_in_tools import StandInTools, empty_places, leftovers


@pytest.fixture
def program(tmp_path):
    return CgiProgram(tmp_path / "state")


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


@pytest.fixture
def tools(tmp_path):
    """Stand-ins for the tools; afterwards no output file of theirs is left."""
    if os.environ.get("RECORDER_IN_PLACE") == "1":
        pytest.skip("the tools can only be replaced in a private namespace")
    empty_places()
    yield StandInTools(tmp_path / "tools")
    assert leftovers() == []


@pytest.fixture
def remote(program, tools):
    """The program, seeing the stand-ins."""
    program.command = tools.around(program.command)
    return program
