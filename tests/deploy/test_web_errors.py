"""What the web server says where it answers instead of the program: what is wrong, in words."""
import re
import socket
from pathlib import Path

import pytest

from places import CGI, LOG_LINK
from stand_in_program import PORT, PROGRAM, request, serving
from waiting import SECONDS

RUN = Path("/run/recorder")
LONG_HEADER = {"X-Long": "x" * 5000}
CHUNKED = {"Transfer-Encoding": "chunked"}


@pytest.fixture(scope="module", autouse=True)
def server(tmp_path_factory):
    with serving(tmp_path_factory.mktemp("stand-in")):
        yield


def words_of(reply):
    """The sentences of a page that is small, and does not tell what made it."""
    text = reply.body.decode("ascii")
    assert reply.headers["Content-Type"] == "text/html; charset=iso-8859-1"
    title, words = re.fullmatch("<!DOCTYPE html><title>(.*)</title><p>(.*)", text).groups()
    assert title == "Recording backup" and len(text) < 600 and "Apache" not in text
    words = re.sub("</?code>", "`", words)
    assert words.endswith(".") and not re.search("[<$]|  ", words), words
    return words


def said(status, method, path, **options):
    reply = request(method, path, **options)
    assert reply.status == status
    return words_of(reply)


FAILURES = [
    (400, "GET", PROGRAM, {"headers": LONG_HEADER}, "none longer than 4 KiB"),
    (403, "GET", "/", {}, "below /cgi-bin/recording_backup.cgi/"),
    (403, "GET", "/", {}, "`journalctl -u recording-backupd`"),
    (403, "GET", f"/cgi-bin/{LOG_LINK.name}", {}, "Nothing is shown at this address."),
    (403, "GET", PROGRAM + "/task", {"headers": {"Origin": "null"}}, "a page of another site"),
    (404, "GET", PROGRAM + "/%2F", {}, "There is nothing at this address."),
    (411, "PUT", PROGRAM + "/task", {"headers": CHUNKED, "body": [b"x"]}, "send it with a Content"),
    (413, "PUT", PROGRAM + "/task", {"body": b"x" * (2**20 + 2**17)}, "1 MiB at most"),
    (414, "GET", PROGRAM + "/?" + "x" * 3000, {}, "2 KiB at most"),
    (500, "GET", PROGRAM + "/crash", {}, "logs/apache.log"),
    (500, "GET", PROGRAM + "/crash", {}, "`journalctl -u recorder-httpd`"),
]


@pytest.mark.parametrize("status, method, path, options, words", FAILURES,
                         ids=[f"{status}: {words}" for status, *_, words in FAILURES])
def test_a_failure_is_told_in_words(status, method, path, options, words):
    assert words in said(status, method, path, **options)


def test_a_request_that_dawdles_is_told_so():
    with socket.create_connection(("127.0.0.1", PORT), timeout=SECONDS) as client:
        client.sendall(f"PUT {PROGRAM}/task HTTP/1.1\r\nHost: a\r\n"
                       "Content-Length: 9\r\n\r\n".encode())
        answer = b""
        while part := client.recv(65536):
            answer += part
    assert answer.startswith(b"HTTP/1.1 408 ")
    assert b"took longer than four seconds to arrive" in answer


def test_a_program_that_is_gone_is_told_so():
    elsewhere = CGI.rename(CGI.with_suffix(".away"))
    try:
        assert "`systemctl restart recorder-httpd` puts it back" in said(404, "GET", PROGRAM)
    finally:
        elsewhere.rename(CGI)


def test_a_program_that_cannot_be_started_is_told_so():
    RUN.chmod(0o700)  # the starter's socket lies here
    try:
        words = said(503, "GET", PROGRAM + "/task")
    finally:
        RUN.chmod(0o750)
    assert words.startswith("The web server cannot start the recording backup's program.")
    assert "`systemctl restart recorder-httpd`" in words


@pytest.mark.parametrize("status", [400, 401, 403, 404, 408, 411, 413, 414, 500, 503, 504])
def test_what_the_program_says_passes_as_it_is(status):
    reply = request("GET", f"{PROGRAM}/says/{status}")
    assert (reply.status, reply.body) == (status, b"{}\n\n")
    assert reply.headers["Content-Type"] == "application/json"
