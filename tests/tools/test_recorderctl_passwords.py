"""How recorderctl takes a password: one line of standard input, unseen on a terminal."""
import os
import pty
import subprocess
import termios

import pytest

from failures import refused
from places import PROGRAMS
from waiting import SECONDS


@pytest.fixture
def task(state):
    """Task 1, whose password can be read back."""
    state.add_tasks(1, password="before")
    return state


def password(state):
    return state.stored_tasks()[0]["password"]


@pytest.mark.parametrize("given, taken", [
    ("new\n", "new"), ("no line end", "no line end"), ("first\nsecond\n", "first"),
    (" blanks \n", " blanks "), ("Tür=%s\\\"'\n", "Tür=%s\\\"'"), ("return\r\n", "return\r")])
def test_the_first_line_is_the_password_as_it_stands(task, given, taken):
    assert task.ctl("task", "set", "1", "password=-", given=given) == "1\n"
    assert password(task) == taken


def test_a_password_may_be_very_long(task):
    long = "long " * 100_000
    task.ctl("task", "set", "1", "password=-", given=long)
    assert password(task) == long


@pytest.mark.parametrize("given", ["", "\n", "\nsecond line\n"])
def test_without_a_first_line_nothing_is_changed(task, given):
    assert refused(task, "task", "set", "1", "status=6", "password=-", given=given) == (
        "no password on standard input")
    assert (password(task), task.statuses()) == ("before", {"1": "new"})


@pytest.mark.parametrize("value", ["secret", "", "--", "-x"])
def test_a_password_among_the_arguments_is_refused(task, value):
    assert refused(task, "task", "set", "1", f"password={value}", given="other\n") == (
        "write password=- and give the password on standard input")
    assert password(task) == "before"


@pytest.fixture
def terminal():
    """Both ends of one, the user's first."""
    ends = pty.openpty()
    yield ends
    for end in ends:
        os.close(end)


def test_a_terminal_is_asked_and_shows_nothing_of_what_is_typed(task, terminal):
    user, tool = terminal
    before = termios.tcgetattr(tool)
    process = subprocess.Popen([PROGRAMS / "recorderctl", "task", "set", "1", "password=-"],
                               env=task.environment, stdin=tool, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
    asked = process.stderr.read(len(b"Password: "))
    os.write(user, b"typed\n")
    output, errors = process.communicate(timeout=SECONDS)
    assert (process.returncode, output, asked + errors) == (0, b"1\n", b"Password: \n")
    assert password(task) == "typed"
    os.set_blocking(user, False)
    with pytest.raises(BlockingIOError):
        os.read(user, 100)  # what the terminal shows
    assert termios.tcgetattr(tool) == before
