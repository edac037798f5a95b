"""The demo on the machine's own paths: it works there, and leaves neither files nor processes."""
import os
import shutil
import signal
import subprocess
from pathlib import Path

import pytest

from loopback import listens
from other_user import NOBODY
from places import BUILD, FIXED_PATHS, SOURCE, STATE
from processes import descendants, is_running, processes
from service_process import end, ended_afterwards, start
from waiting import SECONDS, wait_until

PORTS = (8080, 10445, 10205, 10141, 10206, 10150)
CREATED = [*FIXED_PATHS, STATE, Path("/run/recorder")]

pytestmark = pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                                reason="the paths are this run's own already")


@pytest.fixture(scope="module", autouse=True)
def machine_without_a_recorder():
    """This sandbox, which has the paths, without them."""
    for path in (*FIXED_PATHS, STATE):
        subprocess.run(["umount", path], check=True, timeout=SECONDS)
        shutil.rmtree(path)


@pytest.fixture(name="state", params=[0, NOBODY], ids=["of root", "of another user"])
def state_folder(request, tmp_path):
    """A state folder of somebody's, whom nothing keeps from getting there."""
    for folder in (tmp_path, tmp_path.parent, tmp_path.parent.parent):
        folder.chmod(0o755)
    state = tmp_path / "state"
    state.mkdir(mode=0o700)
    os.chown(state, request.param, request.param)
    return state


def started(state):
    """The demo that has just said how to use it, with the words of the tour."""
    process = start([SOURCE / "scripts/sandbox", "--in-place", "--state", state, "--",
                     SOURCE / "scripts/serve", "--build", BUILD, "--demo", state], "ready on ",
                    stderr=subprocess.DEVNULL)
    words = []
    while not words or words[-1] != "Ctrl-C stops it.\n":
        words.append(process.stdout.readline())
        assert words[-1], words
    return process, words


def left():
    """What is still there of the recorder."""
    names = (b"recorder-logd", b"recording-backupd", b"apache2", b"smbd", b"rotatelogs")
    return ([path for path in CREATED if os.path.lexists(path)],
            [command for _, command in processes() if any(name in command for name in names)],
            [port for port in PORTS if listens(port)])


def test_the_demo_works_and_is_gone_when_it_is_stopped(state):
    process, words = started(state)
    with ended_afterwards(process):
        lines = words[[word[:4] for word in words].index("api="):-1]
        said = subprocess.run(["bash", "-e", "-c", "".join(lines)], text=True, timeout=SECONDS,
                              check=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT).stdout
        assert '"status": "success"' in said and "Run succeeded: " in said
        assert end(process, signal.SIGINT) == 0
    assert not [path for path in CREATED if os.path.lexists(path)]
    # What was sent SIGKILL may take its time to go.
    wait_until(lambda: left() == ([], [], []), "the last processes to end")
    owner = state.stat().st_uid
    assert {path.lstat().st_uid for path in state.rglob("*")} == {owner}


def test_a_demo_that_is_killed_is_gone_all_the_same(state):
    process, _ = started(state)
    theirs = descendants(process.pid)
    process.kill()
    wait_until(lambda: not any(map(is_running, theirs)), "every process to end")
    wait_until(lambda: left() == ([], [], []), "the rest to go")
    process.communicate()
