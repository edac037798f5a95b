"""What clients without a session can do to the web server: keep nobody waiting, fill no disk."""
import os
import signal
import socket
import threading
from pathlib import Path

import pytest

from loopback import request as send
from places import CGI, LOGS
from processes import SLEEP, descendants, is_in_call, processes
from stand_in_program import AWAKE, PORT, PROGRAM, request, serving
from waiting import SECONDS, wait_until
from web_logs import line_with, log_lines

MEBIBYTE = 1024 * 1024
DAWDLERS = 200


@pytest.fixture(autouse=True)
def server(tmp_path):
    AWAKE.unlink(missing_ok=True)
    with serving(tmp_path):
        yield
    for log in LOGS.iterdir():
        log.unlink()


# --- clients that take their time ----------------------------------------------------------------

BODY = (f"PUT {PROGRAM}/task HTTP/1.1\r\nHost: a\r\nContent-Length: 1000000\r\n\r\n", "x" * 60)
HEADER = (f"GET {PROGRAM}/task HTTP/1.1\r\n", "X")


class Dawdlers:
    """Clients that send a little ten times a second, and never all; the set of those still held."""

    def __init__(self, beginning, drop):
        self.drop = drop.encode()
        self.held = [socket.create_connection(("127.0.0.1", PORT)) for _ in range(DAWDLERS)]
        for client in self.held:
            client.sendall(beginning.encode())
        self.done = threading.Event()
        self.thread = threading.Thread(target=self.drip)

    def drip(self):
        while not self.done.wait(0.1):
            self.held = [client for client in self.held if self.is_held(client)]

    def is_held(self, client):
        try:
            client.send(self.drop)
            client.recv(1, socket.MSG_DONTWAIT)
        except BlockingIOError:
            return True
        except OSError:
            pass
        client.close()
        return False

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *unused):
        self.done.set()
        self.thread.join()
        for client in self.held:
            client.close()


def is_answered_among(beginning, drop):
    """Whether a request is answered while there are dawdlers, all of which are cut."""
    with Dawdlers(beginning, drop) as dawdlers:
        assert request("GET", PROGRAM + "/task").status == 200
        before_all_were_cut = bool(dawdlers.held)
        wait_until(lambda: not dawdlers.held, "every dawdler to be cut")
    return before_all_were_cut


@pytest.mark.parametrize("beginning, drop", [BODY, HEADER], ids=["body", "header"])
def test_clients_that_dawdle_keep_nobody_waiting_and_are_cut(beginning, drop):
    # One may have come when they were gone; but not each time, where it need not wait for that.
    wait_until(lambda: is_answered_among(beginning, drop), "an answer before there is room again")


def programs():
    """The CGI programs that run."""
    return {pid for pid, command in processes() if command == str(CGI).encode()}


def sleeper():
    """A request that takes until wake(), and the list that its status will be in."""
    statuses, before = [], programs()
    thread = threading.Thread(
        target=lambda: statuses.append(request("GET", PROGRAM + "/sleep").status))
    thread.start()
    # It sleeps once it has the end of its input. Before, the server may not know it yet: a request
    # that a reload comes upon then is answered 503.
    wait_until(lambda: any(is_in_call(pid, SLEEP) for pid in programs() - before), "the program")
    return thread, statuses


def wake(*sleepers):
    """All of them; each is served to its end."""
    assert [statuses for _, statuses in sleepers] == [[] for _ in sleepers]
    AWAKE.touch()
    for thread, statuses in sleepers:
        thread.join(SECONDS)
        assert statuses == [200]


def test_a_client_that_dawdles_is_cut_long_before_a_program_that_takes_its_time():
    sleeping = sleeper()
    with Dawdlers(*BODY) as dawdlers:
        wait_until(lambda: not dawdlers.held, "every dawdler to be cut")
    wake(sleeping)


# --- reloads -------------------------------------------------------------------------------------

def web_server():
    """The process id of Apache's main process."""
    return int(Path("/run/recorder/httpd.pid").read_text())


def test_a_reload_keeps_nobody_waiting_for_requests_that_take_their_time():
    sleepers = []
    for _ in range(2):  # what the first reload leaves is still there at the second
        sleepers.append(sleeper())
        before = descendants(web_server())
        os.kill(web_server(), signal.SIGUSR1)
        wait_until(lambda: set(descendants(web_server())) - set(before), "another generation")
        assert request("GET", PROGRAM + "/task").status == 200
    wake(*sleepers)


# --- logs ----------------------------------------------------------------------------------------


def log_bytes():
    """Of all logs together; several names of one file count once."""
    return sum({entry.stat().st_ino: entry.stat().st_size for entry in LOGS.iterdir()}.values())


def flood(lines, times):
    """Sends these requests many times over, a hundred a connection, and waits for the replies."""
    for _ in range(times):
        with socket.create_connection(("127.0.0.1", PORT), timeout=SECONDS) as client:
            client.sendall(b"".join(lines) * (100 // len(lines)))
            client.shutdown(socket.SHUT_WR)
            while client.recv(65536):
                pass


LONG = "a" * 1900
REFUSED = [f"{line} HTTP/1.1\r\nHost: a\r\nReferer: {LONG}\r\n{header}\r\n".encode()
           for line, header in [(f"GET /{LONG}", ""), (f"GET {PROGRAM}/{LONG}", "Origin: null\r\n"),
                                (f"{'A' * 1900} /", ""), ("GET /%0a" + "%01" * 600, "")]]


def test_refused_requests_leave_little_in_the_logs_and_nothing_among_the_errors():
    request("GET", PROGRAM + "/first")
    wait_until(lambda: line_with("/first", "requests.log"), "the line")
    wait_until(lambda: line_with("Command line:", "apache.log"), "what a start says last")
    before = log_lines("apache.log")
    clients = [threading.Thread(target=flood, args=(REFUSED, 200)) for _ in range(4)]
    for client in clients:
        client.start()
    for client in clients:
        client.join()
    request("GET", PROGRAM + "/last")
    wait_until(lambda: line_with("/last", "requests.log"), "the newest line")
    assert not any("/first" in log.read_text() for log in LOGS.glob("requests*"))
    assert log_bytes() < 7 * MEBIBYTE
    assert log_lines("apache.log") == before


def test_a_request_is_one_short_line_in_the_log_whatever_it_says():
    flood(REFUSED, 1)
    wait_until(lambda: len(log_lines("requests.log")) >= 100, "the lines")
    lines = log_lines("requests.log")
    assert len(lines) == 100
    assert max(map(len, lines)) < 220


def test_the_logs_are_private_and_their_owner_is_the_state_folders():
    wait_until(lambda: log_lines("apache.log"), "the log")
    for log in LOGS.iterdir():
        assert log.stat().st_mode & 0o777 == 0o600, log
        assert log.stat().st_uid == LOGS.parent.stat().st_uid, log


def test_real_faults_are_told():
    assert request("GET", PROGRAM + "/crash").status == 500
    wait_until(lambda: line_with("End of script output before headers", "apache.log"), "the crash")
    CGI.chmod(0o600)
    assert request("GET", PROGRAM + "/task").status == 500
    wait_until(lambda: line_with("Permission denied", "apache.log"), "the fault")


def test_bodies_that_nobody_reads_do_not_hold_the_server():
    for path in ("/nothing", PROGRAM):
        reply = send(PORT, "PUT", path, b"x" * MEBIBYTE, {"Origin": "null"})
        assert reply.status == 403
