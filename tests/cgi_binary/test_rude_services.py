"""Services that refuse, stay silent, talk rubbish, dawdle or hang: each request gets its reply."""
import json
import os
import re
import socket
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import ExitStack, closing

import pytest

from cgi_program import printed
from places import LOG_EXPORT, LOG_LINK, SOURCE
from replies import CHANGE_STATUS_ERROR, COMMAND_FAILED, RUNNING_INFO_ERROR, SUCCESS, error
from sample_task import task_body
from scripted_server import CONFIGURATION_PORT, LOG_PORT, NOTHING_RUNS, NOTICE_PORT, ScriptedServer

BROKEN = -1
TIMED_OUT = -2
TOO_LONG = -3
TIME_OUT = 5  # seconds, of each call

DONE = ('{ "ret_code": 0, "mesg": "Success.", "has_running_task": false, "isFUSE": true, '
        '"taskID": "", "taskName": "" }')


class RudeServer(ScriptedServer):
    """Does `behave(server, connection)` with each connection, all at once, until closed."""

    def __init__(self, port, behave):
        self.behave = behave
        self.closing = threading.Event()
        self.connections = []
        super().__init__(port)

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:  # closed
                return
            thread = threading.Thread(target=self.meet, args=(connection,))
            self.connections.append(thread)
            thread.start()

    def meet(self, connection):
        with connection, connection.makefile("rb") as stream:
            self.requests.append(self.read(stream))
            try:
                self.behave(self, connection)
            except OSError:
                pass  # the program has given up first

    def close(self):
        self.closing.set()
        super().close()
        for thread in self.connections:
            thread.join()


def answer(connection, body, length=None):
    length = len(body) if length is None else length
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % length + body)


def nothing(server, connection):
    pass


def garbage(server, connection):
    connection.sendall(b"\0\xff\r\nno HTTP at all\r\n\r\n" * 100)


def half(server, connection):
    answer(connection, NOTHING_RUNS[:20], len(NOTHING_RUNS))


def half_a_header(server, connection):
    connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Le")


def late(server, connection):
    server.closing.wait(1)
    answer(connection, NOTHING_RUNS)


def hang(server, connection):
    """Whoever waited for so long would be told that all is well."""
    if not server.closing.wait(20 * TIME_OUT):
        answer(connection, NOTHING_RUNS)


def drip(server, connection):
    """One byte now and then, so that the connection is never silent for long."""
    for byte in b"HTTP/1.1 200 OK\r\nContent-Length: 999\r\n\r\n" + b" " * 999:
        if server.closing.wait(0.2):
            return
        connection.sendall(bytes([byte]))


def ten_megabytes(server, connection):
    answer(connection, NOTHING_RUNS[:-1] + b" " * 10_000_000 + b"}")


def ten_megabytes_of_rubbish(server, connection):
    answer(connection, b"x" * 10_000_000)


# What each route asks for, and what it answers when the daemon cannot be talked to.
ENABLE = ("POST", "/task/1/is_enable", {"is_enable": False})
START = ("POST", "/task/1/active", {"is_active": True})
STOP = ("POST", "/task/1/active", {"is_active": False})
FORCE = ("POST", "/task/1/active/enforcement", {"is_force_running": True})
DELETE_WITH_STOP = ("DELETE", "/task/1?isStop=1", None)
DELETE = ("DELETE", "/task/1?isStop=0", None)
LIST = ("GET", "/task", None)

UNREACHABLE = [
    (ENABLE, error(CHANGE_STATUS_ERROR), 0x22),
    (START, error(RUNNING_INFO_ERROR, "Active task fail."), 0x21),
    (STOP, error(CHANGE_STATUS_ERROR, "Active task fail."), 0x22),
    (FORCE, error(RUNNING_INFO_ERROR, "Force active task fail."), 0x21),
    (DELETE_WITH_STOP, error(CHANGE_STATUS_ERROR, "Delete task fail."), 0)]

SUCCEEDED = [(ENABLE, SUCCESS, 0), (START, DONE, 0), (STOP, DONE, 0), (FORCE, SUCCESS, 0),
             (DELETE_WITH_STOP, SUCCESS, 0), (DELETE, SUCCESS, 0)]


def deleted(status):
    return (DELETE, error(status, "Delete task fail."), 0)


@pytest.fixture
def stored(program):
    """The program with task 1 stored; no service runs yet."""
    program.create(task_body())
    assert [task["taskID"] for task in program.stored_tasks()] == ["1"]
    return program


@pytest.fixture
def meeting():
    """Starts servers of one behaviour on the given ports."""
    with ExitStack() as servers:
        yield lambda behave, *ports: [servers.enter_context(closing(RudeServer(port, behave)))
                                      for port in ports]


def send(program, route):
    method, address, body = route
    path, _, query = address.partition("?")
    return program.request(method, path, body and json.dumps(body),
                           query=f"sid={program.sid}&{query}")


def expect(program, rows, least=0, at_once=True):
    """Sends all requests at once or, where there is much to do for each within its time-out, one
    after the other; each ends with the reply of its row, after `least` seconds or more. At the most
    it takes what a busy machine makes it take; what hangs, `program` ends."""

    def timed(row):
        begin = time.monotonic()
        return send(program, row[0]), time.monotonic() - begin

    with ThreadPoolExecutor(len(rows) if at_once else 1) as pool:
        results = list(pool.map(timed, rows))
    for (route, text, status), (result, took) in zip(rows, results):
        assert (result.text, result.status) == (text, status), route
        assert took >= least, route


def test_daemon_that_is_not_there(stored):
    expect(stored, [*UNREACHABLE, deleted(BROKEN)])
    assert stored.events() == []


def test_the_manual_names_what_requests_get_without_the_daemon(stored):
    row, = [line for line in (SOURCE / "docs/operations.md").read_text().splitlines()
            if "the backup daemon does not answer, or refuses" in line]
    routes = [LIST, DELETE] + [route for route, *_ in UNREACHABLE]
    codes = {int(json.loads(send(stored, route).text)["ret_code"]) for route in routes}
    assert codes == {BROKEN, *map(int, re.findall(r"\b2500460\d{3}\b", row))}
    assert '"Delete task fail." with -1, -2 or an HTTP status' in row


@pytest.mark.parametrize("behave", [nothing, garbage, half, half_a_header])
def test_daemon_that_breaks_off(stored, meeting, behave):
    meeting(behave, NOTICE_PORT, CONFIGURATION_PORT)
    expect(stored, [*UNREACHABLE, deleted(BROKEN)])
    assert stored.events() == []


@pytest.mark.parametrize("behave", [hang, drip])
def test_daemon_that_never_gets_to_the_end_costs_each_call_its_time_out(stored, meeting, behave):
    notices, deletions = meeting(behave, NOTICE_PORT, CONFIGURATION_PORT)
    expect(stored, [*UNREACHABLE, deleted(TIMED_OUT)], least=TIME_OUT)
    assert stored.events() == []
    # Nothing is asked twice, and nothing is deleted when the stop was not confirmed.
    assert len(notices.requests) == len(UNREACHABLE)
    assert [request.query for request in deletions.requests] == [{"taskID": "1"}]


def test_daemon_that_listens_but_never_accepts(stored):
    with ExitStack() as listeners:
        for port in (NOTICE_PORT, CONFIGURATION_PORT):
            listener = listeners.enter_context(socket.create_server(("127.0.0.1", port), backlog=0))
            # One connection fills the backlog: the next ones do not even get through.
            listeners.enter_context(socket.create_connection(listener.getsockname()))
        expect(stored, [*UNREACHABLE, deleted(TIMED_OUT)], least=TIME_OUT)


def test_daemon_that_answers_late_is_waited_for(stored, meeting):
    """A second is far from the time-out, also where the machine adds to it."""
    meeting(late, NOTICE_PORT, CONFIGURATION_PORT)
    expect(stored, SUCCEEDED)
    assert len(stored.events()) == len(SUCCEEDED)


def test_ten_megabytes_are_read(stored, meeting):
    meeting(ten_megabytes, NOTICE_PORT, CONFIGURATION_PORT)
    expect(stored, SUCCEEDED, at_once=False)


def test_ten_megabytes_of_rubbish_matter_only_where_the_reply_is_read(stored, meeting):
    meeting(ten_megabytes_of_rubbish, NOTICE_PORT, CONFIGURATION_PORT)
    expect(stored, [row if row[0] not in (START, FORCE) else UNREACHABLE[index]
                    for index, row in enumerate(SUCCEEDED)], at_once=False)


def test_failed_enable_notice_leaves_the_change_stored(stored, meeting):
    meeting(half, NOTICE_PORT)
    expect(stored, [UNREACHABLE[0]])
    assert [task["enable"] for task in stored.stored_tasks()] == [False]


def test_enable_with_a_body_that_is_no_json_prints_null(stored, meeting):
    notices, = meeting(ten_megabytes, NOTICE_PORT)
    for body in ("", "{", "null"):
        result = stored.request("POST", "/task/1/is_enable", body)
        assert (result.text, result.status) == ("null", 4), body
    result = stored.request("POST", "/task/1/is_enable")
    assert (result.text, result.status) == ("null", 4)
    assert notices.requests == []


# --- the log service -----------------------------------------------------------------------------

LOG = ("GET", "/task/log", None)
FILE = ("GET", "/task/log/file", None)


def log_fails(status):
    return [(LOG, error(status, "Get task log fail."), status & 0xFF),
            (FILE, error(status, "Download task log fail."), status & 0xFF)]


@pytest.fixture
def exported():
    """The fixed places of the export, with an earlier export in them."""
    LOG_LINK.parent.mkdir(parents=True, exist_ok=True)
    LOG_LINK.unlink(missing_ok=True)
    LOG_EXPORT.parent.mkdir(exist_ok=True)
    LOG_EXPORT.write_text("before")
    LOG_LINK.symlink_to(LOG_EXPORT)
    return LOG_EXPORT


def test_log_service_that_is_not_there(program, exported):
    expect(program, log_fails(BROKEN))
    assert LOG_LINK.read_text() == "before"


@pytest.mark.parametrize("behave", [nothing, garbage, half])
def test_log_service_that_breaks_off(program, exported, meeting, behave):
    meeting(behave, LOG_PORT)
    expect(program, log_fails(BROKEN))
    assert LOG_LINK.read_text() == "before"


@pytest.mark.parametrize("behave", [hang, drip])
def test_log_service_that_hangs_costs_the_time_out(program, exported, meeting, behave):
    meeting(behave, LOG_PORT)
    expect(program, log_fails(TIMED_OUT))
    assert LOG_LINK.read_text() == "before"


def test_log_service_that_sends_more_than_the_client_takes(program, exported, meeting):
    def announce_too_much(server, connection):
        answer(connection, b"x", 64 * 1024 * 1024 + 1)
        server.closing.wait()

    meeting(announce_too_much, LOG_PORT)
    expect(program, log_fails(TOO_LONG))
    assert LOG_LINK.read_text() == "before"


def test_any_bytes_are_stored_and_linked(program, log_service, exported):
    for csv in (bytes(range(256)) * 4000, b"\0", b""):
        log_service.otherwise = csv
        assert program.request("GET", "/task/log/file").status == 0
        assert os.readlink(LOG_LINK) == str(LOG_EXPORT)
        assert LOG_LINK.read_bytes() == csv


def test_redirect_has_mixed_line_ends_and_the_local_date(program, log_service, exported):
    def date_in(zone):
        return time.strftime("%Y%m%d", time.gmtime(time.time() + zone * 3600)).encode()

    # The two zones are 26 hours apart, so their dates always differ.
    for name, hours in (("<+14>-14", 14), ("<-12>12", -12)):
        program.environment["TZ"] = name
        before = date_in(hours)
        output = program.request("GET", "/task/log/file").output
        assert output in [
            b"Status: 200 OK\r\nLocation: /cgi-bin/Ostra-RecordingbackLog.csv\n"
            b"Content-Type: application/octet-stream\n"
            b"Content-Disposition: attachment; filename=Ostra-RecordingbackLog-%s.csv\r\n\r\n"
            % date for date in (before, date_in(hours))]


def test_link_that_cannot_be_made_is_a_command_failure(program, log_service):
    LOG_EXPORT.parent.mkdir(exist_ok=True)
    LOG_LINK.unlink(missing_ok=True)
    LOG_LINK.parent.rmdir()
    result = program.request("GET", "/task/log/file")
    assert result.output == printed(error(COMMAND_FAILED, "Download task log fail."))
    assert result.status == 8


def test_folder_in_the_stored_files_place_fails_and_the_link_stays(program, log_service, exported):
    LOG_EXPORT.unlink()
    LOG_EXPORT.mkdir()
    try:
        assert program.request("GET", "/task/log/file").text == error(COMMAND_FAILED,
                                                                     "Download task log fail.")
        assert [path.name for path in LOG_EXPORT.parent.iterdir()] == [LOG_EXPORT.name]
    finally:
        LOG_EXPORT.rmdir()
