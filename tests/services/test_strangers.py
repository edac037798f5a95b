"""Whom the services answer: root and who owns the state folder, and nobody else by any trick."""
import array
import errno
import os
import resource
import shutil
import signal
import socket
import struct
import subprocess
import time

import pytest

from cgi_program import CgiProgram
from loopback import request_json
from other_user import NOBODY, as_user, become, meanwhile_as
from places import PROGRAMS
from processes import stat_fields
from service_process import ended_afterwards, running, start, start_service, with_sockets
from state_folder import StateFolder
from waiting import SECONDS, wait_until

LOG, NOTICE, TASK, METRICS = 10150, 10205, 10141, 10206
PATHS = {LOG: "/logs/logs", NOTICE: "/databackupService/notify", TASK: "/cfg/DataBackupService",
         METRICS: "/metrics"}
METHODS = ("GET", "PUT", "DELETE", "POST", "HEAD", "OPTIONS", "TRACE", "PATCH", "CONNECT")
WAITING = "/databackupService/notify?act=get_waitingTask_seq"
OWNER = 4242
AT_ONCE = struct.pack("ii", 1, 0)  # SO_LINGER: close() resets the connection
DRIP_SECONDS = 0.5
SENT_AWAY = (errno.ECONNRESET, errno.EPIPE, errno.ENOTCONN)
CLOSED = 7  # the state of a connection that is no more (TCP_CLOSE of netinet/tcp.h)


def words(method, target):
    return f"{method} {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode()


DELETION = words("DELETE", "/cfg/DataBackupService?taskID=1")


@pytest.fixture(name="state")
def recorder_with_a_task(tmp_path):
    state = StateFolder(tmp_path / "state").init()
    state.add_tasks(1)
    return state


@pytest.fixture(name="daemon")
def running_daemon(state):
    with running("recording-backupd", state) as process:
        yield process


def connect(port, family=socket.AF_INET, host="127.0.0.1", source=None):
    client = socket.socket(family, socket.SOCK_STREAM)
    client.settimeout(SECONDS)
    if source:
        client.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        client.bind(source)
    try:
        client.connect((host, port))
    except OSError as error:
        assert error.errno in SENT_AWAY, error  # already; what comes next meets the same
    return client


def send(client, data):
    """As much as the other side takes before it hangs up."""
    try:
        client.sendall(data)
    except OSError as error:
        assert error.errno in SENT_AWAY, error


def everything_from(client):
    """What comes until the other side hangs up, however it does that."""
    data = b""
    try:
        while more := client.recv(65536):
            data += more
    except OSError as error:
        assert error.errno in SENT_AWAY, error
    return data


def answer(port, data, **how):
    with connect(port, **how) as client:
        send(client, data)
        return everything_from(client)


def serves(port=NOTICE, target=WAITING):
    return b" 200 " in answer(port, words("GET", target)).partition(b"\r\n")[0]


def still_has_its_task(state):
    """Once whatever came before has been dealt with."""
    assert serves()
    return [task["taskID"] for task in state.stored_tasks()] == ["1"]


# --- what an unprivileged process gets -----------------------------------------------------------


def test_a_trusted_deletion_deletes(daemon, state):
    assert b" 200 " in answer(TASK, DELETION)
    assert state.stored_tasks() == []


def test_an_unprivileged_process_gets_nothing_at_any_port(daemon, state):
    with running("recorder-logd", state):
        for port, path in PATHS.items():
            for data in [*(words(method, path) for method in METHODS), b"garbage\r\n\r\n",
                         words("GET", "/nothing"), words("GET", WAITING)]:
                assert as_user(NOBODY, lambda p=port, d=data: answer(p, d)) == b"", (port, data)
        assert serves() and serves(LOG, PATHS[LOG])
    assert still_has_its_task(state)


def send_and_close():
    send(connect(TASK), DELETION)


def send_and_reset():
    client = connect(TASK)
    client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, AT_ONCE)
    send(client, DELETION)
    client.close()


def send_and_end():
    client = connect(TASK)
    try:
        client.sendall(DELETION)
        client.shutdown(socket.SHUT_WR)
    except OSError:
        pass  # it is hung up on already
    return everything_from(client)


def send_through_ipv6():
    return answer(TASK, DELETION, family=socket.AF_INET6, host="::ffff:127.0.0.1")


def send_from_another_loopback_address():
    return answer(TASK, DELETION, source=("127.0.0.9", 0))


TRICKS = [send_and_close, send_and_reset, send_and_end, send_through_ipv6,
          send_from_another_loopback_address]


@pytest.mark.parametrize("trick", TRICKS)
def test_no_trick_gets_a_request_through(daemon, state, trick):
    for _ in range(50):
        assert as_user(NOBODY, trick) in (None, b"")
    assert still_has_its_task(state)


def stopped(pid):
    return stat_fields(pid)[:1] == ["T"]


class Held:
    """While a process is stopped. What happens meanwhile is all there when it goes on."""

    def __init__(self, process):
        self.process = process

    def __enter__(self):
        self.process.send_signal(signal.SIGSTOP)
        wait_until(lambda: stopped(self.process.pid), "the process to stop")

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGCONT)


@pytest.mark.parametrize("trick", [send_and_close, send_and_reset])
def test_who_is_gone_before_the_look_is_nobody_to_trust(daemon, state, trick):
    with Held(daemon):
        for _ in range(20):
            as_user(NOBODY, trick)
    assert still_has_its_task(state)


def send_from(port, at_the_end):
    client = connect(TASK, source=("127.0.0.1", port))
    client.sendall(DELETION)
    at_the_end(client)
    client.close()


def reset(client):
    client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, AT_ONCE)


def test_a_port_that_root_takes_over_makes_the_one_before_no_better(daemon, state):
    with socket.create_server(("127.0.0.1", 0)) as probe:
        port = probe.getsockname()[1]
    with Held(daemon):
        as_user(NOBODY, lambda: send_from(port, reset))
        heir = connect(TASK, source=("127.0.0.1", port))
        heir.sendall(words("GET", "/nothing"))
    assert b" 404 " in everything_from(heir)
    assert still_has_its_task(state)


def test_a_socket_stays_its_makers_whoever_holds_it(daemon, state):
    ours, theirs = socket.socketpair()

    def make_and_pass():
        made = connect(TASK)
        ours.sendmsg([b"!"], [(socket.SOL_SOCKET, socket.SCM_RIGHTS,
                               array.array("i", [made.fileno()]))])

    as_user(NOBODY, make_and_pass)
    _, passed, _, _ = socket.recv_fds(theirs, 1, 1)
    with socket.socket(fileno=passed[0]) as client:
        client.settimeout(SECONDS)
        send(client, DELETION)
        assert everything_from(client) == b""
    assert still_has_its_task(state)


def test_root_of_a_user_namespace_is_no_root(daemon, state):
    def ask():
        return subprocess.run(
            ["unshare", "--user", "--map-root-user", "curl", "-s", "-m", str(SECONDS),
             f"http://127.0.0.1:{NOTICE}{WAITING}"], capture_output=True, check=False).stdout

    assert as_user(NOBODY, ask) == b""


def test_requests_of_both_kinds_at_once_are_told_apart(daemon, state):
    def send_for_ever():
        while True:
            send_and_close()

    with meanwhile_as(NOBODY, send_for_ever), meanwhile_as(NOBODY, send_for_ever):
        for _ in range(100):
            assert serves()
    assert still_has_its_task(state)


# --- who is trusted ------------------------------------------------------------------------------


def give_away(state, owner):
    for folder in list(state.path.parents)[:-2]:  # of this sandbox's own /tmp
        folder.chmod(0o755)
    for path in (state.path, *state.path.iterdir()):
        shutil.chown(path, owner, owner)


def ask_as(user):
    return as_user(user, lambda: answer(NOTICE, words("GET", WAITING)))


@pytest.mark.parametrize("identity", [None, lambda: become(OWNER)])
def test_root_and_the_owner_are_served(state, identity):
    give_away(state, OWNER)
    # The build folder may be where that user cannot come.
    program = shutil.copy(PROGRAMS / "recording-backupd", state.path.parent)
    with running("recording-backupd", state, preexec_fn=identity, executable=program):
        assert b" 200 " in ask_as(0)
        assert b" 200 " in ask_as(OWNER)
        assert ask_as(NOBODY) == ask_as(OWNER + 1) == b""


def test_root_through_ipv6_is_served(daemon):
    data = words("GET", WAITING)
    assert b" 200 " in answer(NOTICE, data, family=socket.AF_INET6, host="::ffff:127.0.0.1")


def test_who_has_said_all_and_listens_is_served(daemon):
    with connect(NOTICE) as client:
        client.sendall(words("GET", WAITING))
        client.shutdown(socket.SHUT_WR)
        assert b" 200 " in everything_from(client)


def wait_for_a_reset():
    with connect(NOTICE) as client:
        wait_until(lambda: client.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 1)[0] == CLOSED,
                   "the reset")


def test_who_is_sent_away_keeps_no_port(daemon):
    as_user(NOBODY, wait_for_a_reset)


# --- how many, and how long ----------------------------------------------------------------------


def drip(count):
    """Keeps as many connections as it can and sends a byte of a request on each now and then."""
    resource.setrlimit(resource.RLIMIT_NOFILE, (count + 100, count + 100))
    clients = []
    while True:
        clients = [client for client in clients if send_a_byte(client)]
        while len(clients) < count:
            clients.append(connect(NOTICE))
        time.sleep(DRIP_SECONDS / 10)


def send_a_byte(client):
    try:
        client.send(b"G")
        return True
    except OSError:
        client.close()
        return False


def list_tasks(cgi):
    """How long the list took that the program made with the daemon's help."""
    begin = time.monotonic()
    result = cgi.request("GET", "/task")
    assert '"ret_code": 0' in result.text or '"retCode": 0' in result.text, result.text
    return time.monotonic() - begin


def report(what, times):
    times = sorted(times)
    print(f"{what}: median {times[len(times) // 2] * 1000:.1f} ms, "
          f"longest {times[-1] * 1000:.1f} ms")


def few_files():
    resource.setrlimit(resource.RLIMIT_NOFILE, (1024, 1024))


# Strangers, as many as the same user may have, and far more of another trusted user.
@pytest.mark.parametrize("user, count, owner", [(NOBODY, 2000, 0), (0, 128, 0), (0, 500, OWNER)])
def test_the_cgi_program_is_served_while_others_drip(tmp_path, user, count, owner):
    cgi = CgiProgram(tmp_path / "cgi")
    give_away(cgi, owner)
    with running("recording-backupd", cgi, preexec_fn=few_files):
        report("alone", [list_tasks(cgi) for _ in range(50)])
        with meanwhile_as(user, lambda: drip(count)):
            time.sleep(2 * DRIP_SECONDS)
            report(f"while {count} drip", [list_tasks(cgi) for _ in range(100)])


def test_dripping_does_not_make_a_connection_last(daemon):
    with connect(NOTICE) as client:
        client.sendall(b"GET / HTTP/1.1\r\nX: ")
        while send_a_byte(client):
            time.sleep(DRIP_SECONDS)
    assert serves()


def test_the_oldest_connection_makes_room_for_one_too_many(daemon):
    clients = [connect(NOTICE) for _ in range(128)]
    assert serves()
    for client in clients[1:]:  # all of them before they have been silent for too long
        client.sendall(words("GET", WAITING))
    assert everything_from(clients[0]) == b""
    assert all(b" 200 " in everything_from(client) for client in clients[1:])


# --- sockets that systemd passes -----------------------------------------------------------------


def start_with(state, sockets, **options):
    command, passing = with_sockets("recording-backupd", sockets)
    return start(command, "recording-backupd: listening", env=state.environment,
                 stderr=subprocess.PIPE, **passing, **options)


def test_passed_sockets_are_served_and_outlive_the_service(state):
    with socket.create_server(("127.0.0.1", NOTICE)) as notice, \
            socket.create_server(("127.0.0.1", TASK)) as task:
        with ended_afterwards(start_with(state, [task, notice])):
            assert serves() and serves(TASK, "/nothing") is False
            assert request_json(NOTICE, "GET", WAITING)[0] == 200
        early = connect(NOTICE)
        early.sendall(words("GET", WAITING))
        with ended_afterwards(start_with(state, [task, notice])):
            assert b" 200 " in everything_from(early)


def test_what_was_passed_by_mistake_is_told_and_left(state):
    with socket.create_server(("127.0.0.1", NOTICE)) as notice, \
            socket.create_server(("127.0.0.1", 0)) as other, \
            socket.socket(type=socket.SOCK_DGRAM) as datagrams:
        datagrams.bind(("127.0.0.1", TASK))
        process = start_with(state, [other, notice, datagrams])
        assert serves() and b" 404 " in answer(TASK, words("GET", "/nothing"))
        process.terminate()
        lines = process.communicate(timeout=SECONDS)[1].splitlines()
    assert lines == [f"descriptor {number} was passed and is no listening socket of this service"
                     for number in (3, 5)]


def test_sockets_passed_to_another_process_are_none_of_ours(state):
    environment = {**state.environment, "LISTEN_PID": "1", "LISTEN_FDS": "1"}
    state.environment = environment
    with ended_afterwards(start_service("recording-backupd", state)):
        assert serves()
