"""The fixture that gives a console of its own to each test."""
import pytest

from console_program import ConsoleProgram


@pytest.fixture
def console(tmp_path):
    return ConsoleProgram(tmp_path / "state")
