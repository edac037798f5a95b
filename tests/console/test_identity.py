"""Whose rights a request of the console has: those of the state folder's owner, never more."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from cgi_program import cgi_variables
from places import CONSOLE, PROGRAMS, STATE
from processes import READ_INPUT, is_in_call
from state_folder import StateFolder
from waiting import SECONDS, wait_until

OWNER, OWNERS_GROUP = 4711, 4712
WEB_SERVER, WEB_GROUP = 33, 34


@pytest.fixture(params=[(0, 0), (OWNER, OWNERS_GROUP)], ids=["of root", "of another user"])
def owner(request):
    """Of a state folder with an administrator in it, as the program is installed for it."""
    state = StateFolder(STATE).init()
    state.add_user("admin")
    sid = state.open_session("admin")
    for path in (STATE, *STATE.rglob("*")):
        os.lchown(path, *request.param)
    CONSOLE.parent.mkdir(exist_ok=True)
    shutil.copy(PROGRAMS / CONSOLE.name, CONSOLE)
    os.chown(CONSOLE, request.param[0], WEB_GROUP)
    CONSOLE.chmod(0o4750)
    yield request.param[0], sid
    for path in STATE.iterdir():
        path.unlink()
    os.chown(STATE, 0, 0)


def start(method, body_length=None, mask=-1, **variables):
    """As the web server does."""
    command = ["/usr/bin/setpriv", f"--reuid={WEB_SERVER}", f"--regid={WEB_GROUP}",
               "--clear-groups", CONSOLE]
    return subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, umask=mask,
                            env={**cgi_variables(method, "/session", "", body_length), **variables})


def status_of(pid):
    return dict(line.split(":\t", 1) for line in
                Path(f"/proc/{pid}/status").read_text().splitlines())


def test_a_request_is_the_owner_for_good_before_its_body_is_read(owner):
    user, _ = owner
    process = start("DELETE", 10)
    try:
        wait_until(lambda: is_in_call(process.pid, READ_INPUT), "the reading of the body")
        status = status_of(process.pid)
    finally:
        process.kill()
        process.communicate()
    assert status["Uid"].split() == [str(user)] * 4
    assert status["Gid"].split() == [str(WEB_GROUP)] * 4
    assert (status["CapPrm"], status["CapEff"]) == ("0" * 16, "0" * 16)
    assert status["NoNewPrivs"] == "1"


def test_whoever_starts_it_does_not_choose_the_modes_of_its_files(owner):
    body = b'{"name": "admin", "password": "wrong"}'
    for mask in (0o777, 0):
        process = start("POST", len(body), mask=mask)
        assert process.communicate(body, timeout=SECONDS)[0].startswith(b"Status: 401 ")
    assert (STATE / "sign_in.lock").stat().st_mode & 0o777 == 0o600


def test_whoever_starts_it_does_not_choose_the_state(owner, tmp_path):
    process = start("GET", RECORDER_STATE=str(tmp_path), HTTP_COOKIE="sid=" + owner[1])
    assert process.communicate(timeout=SECONDS)[0].startswith(b"Status: 200 OK\r\n")


def test_nobody_is_root_with_somebody_elses_state(owner):
    os.chown(CONSOLE, 0, WEB_GROUP)
    CONSOLE.chmod(0o4750)
    os.chown(STATE, OWNER, OWNERS_GROUP)
    process = start("GET")
    assert process.communicate(timeout=SECONDS)[0] == b""
    assert process.returncode == -6  # abort(3), which reaches the web server as "no answer"
