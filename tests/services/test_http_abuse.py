"""Broken, oversized and endless requests: refused, while everyone else goes on being served."""
import json
import resource
import socket

import pytest

from loopback import request_json
from service_process import running
from state_folder import StateFolder
from waiting import SECONDS

PORT = 10205
PATH = "/databackupService/notify"
KIB = 1024
HOST = b"Host: localhost\r\n"
TO_PATH = PATH.encode() + b" HTTP/1.1\r\n" + HOST


@pytest.fixture
def daemon(tmp_path):
    with running("recording-backupd", StateFolder(tmp_path / "state").init()) as process:
        yield process


def connect():
    return socket.create_connection(("127.0.0.1", PORT), timeout=SECONDS)


def first_line(data):
    """Sends raw bytes; the first line of the reply, empty when the service just hangs up."""
    with connect() as client:
        try:
            client.sendall(data)
            client.shutdown(socket.SHUT_WR)
            return client.makefile("rb").readline().decode("latin-1").strip()
        except TimeoutError:
            raise
        except OSError:  # reset at any point of the above, since the service did not read on
            return ""


def serves():
    return request_json(PORT, "GET", PATH, act="get_waitingTask_seq") == (
        200, {"retCode": 0, "watinTask_info": []})


@pytest.mark.parametrize("data", [
    b"\r\n\r\n", b"\0" * 4096, b"\xff\xfe GET\r\n\r\n", b"GET\r\n\r\n", b"GET / \r\n\r\n",
    b"GET / HTTP/9.9\r\n" + HOST + b"\r\n", b"GET http://[::1 HTTP/1.1\r\n" + HOST + b"\r\n",
    b"BREW / HTTP/1.1\r\n" + HOST + b"\r\n",
    b"CONNECT a:1 HTTP/1.1\r\n\r\n", b"GET / HTTP/1.1\r\n" + HOST + b"no colon\r\n\r\n",
    b"PUT " + TO_PATH + b"Content-Length: -5\r\n\r\n",
    b"PUT " + TO_PATH + b"Content-Length: 99999999999999999999\r\n\r\n",
    b"PUT " + TO_PATH + b"Transfer-Encoding: chunked\r\n\r\nzz\r\n",
    b"GET " + PATH.encode() + b"?act=%zz&&=&=1 HTTP/1.1\r\n" + HOST + b"\r\n",
])
def test_garbage_is_never_a_success(daemon, data):
    assert " 200 " not in first_line(data) + " "
    assert serves()


def test_huge_headers_are_refused(daemon):
    for data in (b"GET /" + b"a" * 100 * KIB + b" HTTP/1.1\r\n" + HOST + b"\r\n",
                 b"GET / HTTP/1.1\r\n" + HOST + b"X: " + b"a" * 100 * KIB + b"\r\n\r\n",
                 b"GET / HTTP/1.1\r\n" + HOST + b"X: y\r\n" * 20000 + b"\r\n"):
        assert " 200 " not in first_line(data) + " "
        assert serves()


def notice_of(size):
    notice = json.dumps({"notice_reason": {"type": 1030, "action": 1}}).encode()
    return notice + b" " * (size - len(notice))


def test_body_of_one_mebibyte_is_the_most(daemon):
    assert request_json(PORT, "PUT", PATH, notice_of(1024 * KIB)) == (200, {"retCode": 0})
    head = b"PUT " + TO_PATH + b"Content-Length: %d\r\n\r\n" % (1024 * KIB + 1)
    assert " 413 " in first_line(head)
    assert serves()


def test_chunked_body_is_bounded_too(daemon):
    head = b"PUT " + TO_PATH + b"Transfer-Encoding: chunked\r\n\r\n"
    chunk = b"10000\r\n" + b" " * 0x10000 + b"\r\n"
    assert " 200 " not in first_line(head + chunk * 40 + b"0\r\n\r\n") + " "
    assert serves()


def test_clients_that_leave_early_do_no_harm(daemon):
    for data in (b"", b"P", b"PUT " + TO_PATH,
                 b"PUT " + TO_PATH + b"Content-Length: 50\r\n\r\n{",
                 b"GET " + PATH.encode() + b"?act=get_waitingTask_seq HTTP/1.1\r\n" + HOST +
                 b"\r\n"):
        for _ in range(20):
            client = connect()
            client.sendall(data)
            client.close()
    assert serves()


def test_silent_connection_is_closed_while_others_are_served(daemon):
    with connect() as client:
        client.sendall(b"PUT " + TO_PATH + b"Content-Length: 50\r\n\r\n{")
        assert serves()
        assert b" 200 " not in client.makefile("rb").read()


def test_more_connections_than_file_descriptors_are_waited_out(tmp_path):
    def few_files():
        resource.setrlimit(resource.RLIMIT_NOFILE, (64, 64))

    state = StateFolder(tmp_path / "state").init()
    with running("recording-backupd", state, preexec_fn=few_files):
        clients = [connect() for _ in range(80)]
        assert serves()
        for client in clients:
            client.close()
        assert serves()


def test_no_port_is_open_to_other_machines(daemon):
    listening = []
    for table in ("/proc/net/tcp", "/proc/net/tcp6"):
        for line in open(table, encoding="ascii").readlines()[1:]:
            address, state = line.split()[1], line.split()[3]
            if state == "0A" and int(address.split(":")[1], 16) in (10205, 10141, 10206):
                listening.append(address.split(":")[0])
    assert listening == ["0100007F"] * 3
