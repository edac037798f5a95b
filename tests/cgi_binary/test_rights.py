"""Whose rights a request has: the program set-user-ID root, the recorder another user's."""
import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from cgi_program import CgiProgram, cgi_variables
from places import CGI, DEBUG_FILE, LOG_EXPORT, PROGRAMS, STATE
from processes import READ_INPUT, WRITE_OUTPUT, is_in_call
from sample_task import task_body
from stand_in_tools import list_shares
from waiting import wait_until

OWNER, OWNERS_GROUP = 4711, 4712
WEB_SERVER, WEB_GROUP = 33, 34


def give_to_owner(folder):
    for path in (folder, *folder.rglob("*")):
        os.lchown(path, OWNER, OWNERS_GROUP)


@pytest.fixture
def started():
    """Processes; what is left of them ends with the test."""
    processes = []
    yield processes
    for process in processes:
        process.kill()
        process.communicate()


@pytest.fixture
def program():
    """The program as it is installed, over a state folder of OWNER's."""
    made = CgiProgram(STATE)
    made.create(task_body(taskName="first"))
    give_to_owner(STATE)
    CGI.parent.mkdir(exist_ok=True)
    shutil.copy(PROGRAMS / CGI.name, CGI)
    os.chown(CGI, 0, WEB_GROUP)
    CGI.chmod(0o4750)
    for folder in (LOG_EXPORT.parent, DEBUG_FILE.parent):
        shutil.rmtree(DEBUG_FILE.parent, ignore_errors=True)
        folder.mkdir(exist_ok=True)
        give_to_owner(folder)
    made.command = ["/usr/bin/setpriv", f"--reuid={WEB_SERVER}", f"--regid={WEB_GROUP}",
                    "--clear-groups", CGI]
    yield made
    shutil.rmtree(STATE / "logs", ignore_errors=True)
    for path in STATE.iterdir():
        path.unlink()
    os.chown(STATE, 0, 0)


def full_pipe():
    """A pipe that takes no byte more."""
    reader, writer = os.pipe()
    os.set_blocking(writer, False)
    try:
        while True:
            os.write(writer, b"x" * 4096)
    except BlockingIOError:
        pass
    os.set_blocking(writer, True)
    return reader, writer


def rights(pid):
    """Real, effective and saved user, groups, and what capabilities there are."""
    status = dict(line.split(":\t", 1) for line in
                  Path(f"/proc/{pid}/status").read_text().splitlines())
    return {"users": [int(user) for user in status["Uid"].split()[:3]],
            "groups": [int(group) for group in status["Groups"].split()],
            "permitted": int(status["CapPrm"], 16), "effective": int(status["CapEff"], 16)}


def start(program, started, method, path, body=None, query="", **streams):
    length = None if body is None else len(body)
    variables = cgi_variables(method, path, f"sid={program.sid}{query}", length)
    process = subprocess.Popen(program.command, env=variables, **streams)
    started.append(process)
    return process


def rights_at_the_end(program, started, method, path, body=None, query=""):
    """A request's rights while it prints its reply, which it cannot get rid of."""
    reader, writer = full_pipe()
    process = start(program, started, method, path, body, query, stdin=subprocess.PIPE,
                    stdout=writer)
    os.close(writer)
    if body is not None:
        process.stdin.write(body)
        process.stdin.flush()
    wait_until(lambda: is_in_call(process.pid, WRITE_OUTPUT), "the reply")
    found = rights(process.pid)
    os.close(reader)
    return found


OWNERS_RIGHTS = {"users": [OWNER] * 3, "groups": [WEB_GROUP], "permitted": 0, "effective": 0}

ROUTES_WITHOUT_TOOLS = [
    ("GET", "/channel", None, ""),
    ("GET", "/fuse", None, ""),
    ("GET", "/task", None, ""),
    ("GET", "/task/status", None, ""),
    ("GET", "/task/status/1", None, ""),
    ("GET", "/task/log", None, ""),
    ("GET", "/task/unknown", None, ""),
    ("PUT", "/task", task_body(taskName="second").encode(), ""),
    ("POST", "/task/1", task_body(taskName="changed").encode(), ""),
    ("POST", "/task/1/active", b'{"is_activate": true}', ""),
    ("POST", "/task/1/active/enforcement", b'{"is_force_running": true}', ""),
    ("POST", "/task/1/is_enable", b'{"is_enable": true}', ""),
    ("DELETE", "/task/1", None, "&isStop=1"),
    ("PATCH", "/task", None, ""),
]


@pytest.mark.parametrize("request_line", ROUTES_WITHOUT_TOOLS, ids=lambda row: " ".join(row[:2]))
def test_route_without_tools_has_given_up_root_for_good(program, started, daemon,
                                                        configuration_service, log_service,
                                                        request_line):
    assert rights_at_the_end(program, started, *request_line) == OWNERS_RIGHTS


def test_request_without_a_session_has_given_up_root_for_good(program, started):
    program.sid = "unknown"
    assert rights_at_the_end(program, started, "GET", "/share") == OWNERS_RIGHTS


def rights_at_the_body(program, started, path):
    """A request's rights while it waits for its body."""
    process = start(program, started, "PUT", path, b"never sent", stdin=subprocess.PIPE,
                    stdout=subprocess.DEVNULL)
    wait_until(lambda: is_in_call(process.pid, READ_INPUT), "the reading of the body")
    return rights(process.pid)


def test_body_of_a_route_without_tools_is_read_without_a_way_back_to_root(program, started):
    assert rights_at_the_body(program, started, "/task") == OWNERS_RIGHTS


def test_body_of_a_route_with_tools_is_read_with_the_rights_of_the_recorders_user(program,
                                                                                  started):
    found = rights_at_the_body(program, started, "/server/testing")
    assert found["users"] == [0, OWNER, 0]
    assert found["groups"] == [WEB_GROUP]
    assert found["effective"] == 0


def test_share_listing_has_given_up_root_for_good_once_its_tool_has_run(program, started, tools):
    tools.install("smbclient", "say('Disk|public|\\n')")
    program.command = tools.around(program.command)
    assert list_shares(program).text == \
        '{ "ret_code": 0, "mesg": "Success.", "shareList": [ "public" ] }'
    assert tools.calls("smbclient")[0]["users"] == [0, 0, 0]
    found = rights_at_the_end(program, started, "GET", "/share",
                              query="&ip=192.0.2.7&port=445&user=u&pwd=cA==")
    assert found == OWNERS_RIGHTS


def test_server_test_runs_its_tools_as_root(program, tools):
    program.command = tools.around(program.command)
    reply = program.request("PUT", "/server/testing", json.dumps({
        "serverIP": "192.0.2.7", "port": 445, "username": "u", "password": "p",
        "destPath": "/public"}))
    assert '"mesg": "Success."' in reply.text
    assert [call["users"] for call in tools.calls()] == [[0, 0, 0]] * 2


def test_all_that_requests_store_belongs_to_the_recorders_user(program, tools, daemon,
                                                               configuration_service, log_service):
    log_service.otherwise = b"the log"
    program.command = tools.around(program.command)
    assert list_shares(program).text.startswith('{ "ret_code": 0')
    assert '"ret_code": 0' in program.create(task_body(taskName="second")).text
    download = program.serve("GET", "/task/log/file")
    assert b"Location: /cgi-bin/" in download.output
    assert '"ret_code": 0' in program.create(task_body(taskName="third")).text
    files = [path for folder in (STATE, DEBUG_FILE.parent, LOG_EXPORT.parent)
             for path in folder.rglob("*")]
    assert {DEBUG_FILE, LOG_EXPORT, STATE / "events.db"} <= set(files)
    assert {str(path): path.lstat().st_uid for path in files} == \
        {str(path): OWNER for path in files}
    assert "download" in DEBUG_FILE.read_text()
    exported = LOG_EXPORT.lstat()
    assert (exported.st_gid, exported.st_mode & 0o7777) == (WEB_GROUP, 0o640)
