"""What calls on a share say when its connection has gone, against a real server."""
import shutil
import subprocess

import pytest

from fault_proxy import FaultProxy
from places import PROGRAMS
from samba_server import USER, SambaServer

CALLS = ("look", "list", "folder", "open", "remove")


class Calls:
    """A program with a connection to a share."""

    def __init__(self, port, password):
        self.process = subprocess.Popen([PROGRAMS / "share_calls", str(port), "backup", USER],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.connected = self.answer(password)

    def answer(self, line):
        print(line, file=self.process.stdin, flush=True)
        return self.process.stdout.readline().strip()

    def __call__(self, call, path):
        return self.answer(f"{call} {path}")

    def __enter__(self):
        return self

    def __exit__(self, *unused):
        self.process.stdin.close()
        assert self.process.wait() == 0
        self.process.stdout.close()


@pytest.fixture(name="samba")
def server(tmp_path):
    folder = tmp_path / "share"
    (folder / "folder").mkdir(parents=True)
    (folder / "folder/file").write_bytes(b"content")
    share = {"path": folder, "read only": "no", "force user": "root"}
    with SambaServer(tmp_path / "samba", {"backup": share}) as samba:
        yield samba


@pytest.fixture(name="proxy")
def between(samba):
    with FaultProxy(samba.port) as proxy:
        yield proxy


def path_for(call):
    return "folder" if call == "list" else "folder/file"


def cut_behind(proxy, calls):
    """The line is cut, and a call has noticed."""
    proxy.cut()
    assert calls("look", "folder/file").startswith("lost: ")


@pytest.mark.parametrize("call", CALLS)
def test_login_that_is_refused_behind_a_cut_is_a_lost_connection(samba, proxy, call):
    with Calls(proxy.port, samba.password) as calls:
        assert calls.connected == "connected"
        samba.set_password("another one")
        cut_behind(proxy, calls)
        path = path_for(call)
        assert calls(call, path) == f"lost: {path}: the connection was lost"


@pytest.mark.parametrize("call", CALLS)
def test_share_that_is_not_there_behind_a_cut_is_a_lost_connection(samba, proxy, call):
    with Calls(proxy.port, samba.password) as calls:
        assert calls.connected == "connected"
        shutil.move(samba.shares["backup"]["path"], samba.folder / "elsewhere")
        cut_behind(proxy, calls)
        path = path_for(call)
        assert calls(call, path) == f"lost: {path}: the connection was lost"


def test_calls_that_a_new_connection_answers_are_as_good(samba, proxy):
    with Calls(proxy.port, samba.password) as calls:
        cut_behind(proxy, calls)
        assert calls("look", "folder/file") == "there"
        assert calls("list", "folder") == "1 files"
        assert calls("folder", "folder/new") == "made"
        assert calls("open", "folder/new/file") == "opened"
        assert calls("remove", "folder/file") == "not there any more"
    assert (samba.shares["backup"]["path"] / "folder/new/file").exists()
    assert not (samba.shares["backup"]["path"] / "folder/file").exists()


def test_what_is_missing_is_believed_over_the_first_connection_alone(samba, proxy):
    with Calls(proxy.port, samba.password) as calls:
        assert calls("look", "folder/none") == "not there"
        assert calls("list", "none") == "0 files"
        assert calls("remove", "folder/none") == "not there any more"
        cut_behind(proxy, calls)
        assert calls("look", "folder/none") == "lost: folder/none: the connection was lost"
