"""A server's shares: how the listing tool is called, and what becomes of what it says."""
import json
import os
from pathlib import Path

import pytest

from processes import is_running
from waiting import SECONDS, wait_until

TOOL = Path("/usr/bin/smbclient")
QUESTION = {"server": "192.0.2.7", "user": "u", "password": "Very secret"}

pytestmark = pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                                reason="the tool can only be replaced in a private namespace")

STAND_IN = """#!/usr/bin/python3 -I
import json, os, sys, time
account = sys.argv[sys.argv.index("-A") + 1]
json.dump({{"arguments": sys.argv[1:], "environment": dict(os.environ), "process": os.getpid(),
           "text": open(account).read(), "mode": os.stat(account).st_mode & 0o777,
           "links": os.stat(account).st_nlink}}, open({note!r} + ".part", "w"))
os.rename({note!r} + ".part", {note!r})
time.sleep({seconds})
sys.stdout.write({said!r})
sys.exit({status})
"""


@pytest.fixture
def tool(tmp_path):
    """Puts a stand-in, which notes its call, in the tool's place."""
    real = TOOL.rename(TOOL.with_suffix(".real"))
    note = tmp_path / "note"

    def install(said="", status=0, seconds=0):
        TOOL.write_text(STAND_IN.format(note=str(note), said=said, status=status, seconds=seconds))
        TOOL.chmod(0o755)
        return lambda: json.loads(note.read_text())

    yield install
    real.rename(TOOL)


def ask(console, **changes):
    question = {name: value for name, value in {**QUESTION, **changes}.items()
                if value is not None}
    return console.call("POST", "/shares", question)


def test_shares_have_their_names_and_comments(console, tool):
    tool("Disk|public|for all\nIPC|IPC$|x\nDisk|OstraSpace_1|own\nDisk|<b>|a|b\nDisk|bare|\n")
    assert ask(console).json == {"shares": [
        {"name": "public", "comment": "for all"}, {"name": "<b>", "comment": "a|b"},
        {"name": "bare", "comment": ""}]}


def test_the_password_is_in_no_argument_and_no_environment_and_gone_afterwards(console, tool):
    call = tool()
    assert ask(console, user="DOM\\the user", port=1445).json == {"shares": []}
    noted = call()
    assert noted["arguments"] == ["-g", "-L", "192.0.2.7", "-p", "1445", "-A", "/dev/stdin"]
    assert noted["text"] == "username = the user\ndomain = DOM\npassword = Very secret\n"
    assert (noted["mode"], noted["links"]) == (0o600, 0)  # of no folder
    assert "secret" not in str(noted["environment"])


def contents(folder):
    return b"".join(path.read_bytes() for path in folder.rglob("*") if path.is_file())


def test_a_request_that_is_killed_leaves_neither_password_nor_tool(console, tool, tmp_path):
    tool(seconds=10 * SECONDS)
    before = {*console.path.iterdir(), console.path / "registry.answers"}
    body = json.dumps(QUESTION).encode()
    process = console.start(console.environment_of("POST", "/shares", length=len(body)))
    process.stdin.write(body)
    process.stdin.close()
    wait_until((tmp_path / "note").exists, "the tool's call")
    process.kill()
    process.wait()
    process.stdout.close()
    process.stderr.close()
    noted = json.loads((tmp_path / "note").read_text())
    assert "Very secret" in noted["text"] and b"Very secret" not in contents(console.path)
    assert {path for path in console.path.iterdir() if path.suffix not in (".db-wal", ".db-shm")} \
        <= before
    wait_until(lambda: not is_running(noted["process"]), "the tool's end")


def test_a_tasks_stored_password_is_used_and_not_told(console, tool):
    call = tool("Disk|public|\n")
    console.store_task(taskName="Doors", enable=True, status=1, password="Stored secret")
    answer = ask(console, password=None, task="1")
    assert "password = Stored secret\n" in call()["text"] and b"secret" not in answer.body
    assert ask(console, password=None, task="9").status == 404


@pytest.mark.parametrize("said, code", [
    ("session setup failed: NT_STATUS_LOGON_FAILURE\n", "wrong_account"),
    ("session setup failed: NT_STATUS_ACCOUNT_LOCKED_OUT\n", "wrong_account"),
    ("do_connect: Connection to x failed (Error NT_STATUS_CONNECTION_REFUSED)\n", "no_server"),
    ("do_connect: Connection to x failed (Error NT_STATUS_IO_TIMEOUT)\n", "no_server"),
    ("something <b>else</b>\n", "server_failed"), ("", "server_failed")])
def test_what_goes_wrong_is_told_in_words_of_our_own(console, tool, said, code):
    tool(said, status=1)
    answer = ask(console)
    assert (answer.status, answer.code) == (422, code)
    assert "<b>" not in answer.json["error"]["text"]


@pytest.mark.parametrize("field, value", [
    ("server", ""), ("server", "-x"), ("server", "a b"), ("server", "//nas/s"), ("server", "$(id)"),
    ("server", "a" * 256), ("server", None), ("server", 1), ("user", None), ("user", "a\nb"),
    ("password", None), ("password", "a\nusername = b"), ("password", "a\rb"),
    ("password", "x" * 256), ("port", 0), ("port", 65536), ("port", "445")])
def test_what_is_no_question_reaches_no_tool(console, tool, field, value):
    call = tool()
    answer = ask(console, **{field: value})
    assert (answer.status, answer.json["error"]["field"]) == (400, field)
    with pytest.raises(FileNotFoundError):
        call()
