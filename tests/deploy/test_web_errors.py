"""What the web server says where it answers instead of the program: what is wrong, in words."""
import re
import socket
from pathlib import Path

import pytest

from places import CGI, LOG_EXPORT, LOG_LINK, SOURCE
from stand_in_program import PORT, PROGRAM, request, serving
from waiting import SECONDS

RUN = Path("/run/recorder")
LONG_HEADER = {"X-Long": "x" * 5000}
CHUNKED = {"Transfer-Encoding": "chunked"}

# A stranger's ticket to what runs here: folders and logs, services, commands, what made the page.
OF_THE_MACHINE = "/(home|var|run|etc|usr|tmp)|log(s/|[.])|[.]log|ctl|recorder-|backupd|httpd|Apache"


@pytest.fixture(scope="module", autouse=True)
def server(tmp_path_factory):
    with serving(tmp_path_factory.mktemp("stand-in")):
        yield


def words_of(reply):
    """The sentences of a page that is small, and tells nobody what it runs on."""
    text = reply.body.decode("ascii")
    assert reply.headers["Content-Type"] == "text/html; charset=iso-8859-1"
    title, words = re.fullmatch("<!DOCTYPE html><title>(.*)</title><p>(.*)", text).groups()
    assert title == "Recording backup" and len(text) < 600
    words = re.sub("</?q>", '"', words)
    assert words[-1] == "." and not re.search("[<$]|  ", words), words
    assert not re.search(OF_THE_MACHINE, words), words
    return words


def said(status, method, path, **options):
    reply = request(method, path, **options)
    assert reply.status == status
    return words_of(reply)


MORE = ' What to look at stands in docs/operations.md, "When it fails".'
FAILURES = [
    (400, "GET", PROGRAM, {"headers": LONG_HEADER}, "up to 40 header fields of 4 KiB each."),
    (403, "GET", "/cgi-bin/", {}, "below /cgi-bin/recording_backup.cgi/." + MORE),
    (403, "GET", f"/cgi-bin/{LOG_LINK.name}", {}, "Nothing is shown at this address."),
    (403, "GET", PROGRAM + "/task", {"headers": {"Origin": "null"}}, "a page of another site"),
    (403, "GET", PROGRAM + "/task", {"headers": {"Origin": "null"}}, '"A proxy with TLS in front"'),
    (405, "TRACE", PROGRAM + "/task", {}, "does not take this method here."),
    (411, "PUT", PROGRAM + "/task", {"headers": CHUNKED, "body": [b"x"]}, "send it with a Content"),
    (413, "PUT", PROGRAM + "/task", {"body": b"x" * (2**20 + 2**17)}, "1 MiB at most"),
    (414, "GET", PROGRAM + "/?" + "x" * 3000, {}, "2 KiB at most"),
    (417, "GET", PROGRAM + "/task", {"headers": {"Expect": "x"}}, "no other Expect than 100-cont"),
    (500, "GET", PROGRAM + "/crash", {}, "or the program cannot work." + MORE),
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


def test_a_part_beyond_the_end_of_the_exported_log_is_told_so():
    LOG_EXPORT.write_text("a,b\n")
    LOG_LINK.symlink_to(LOG_EXPORT)
    try:
        words = said(416, "GET", PROGRAM + "/task/log/file", headers={"Range": "bytes=999-"})
    finally:
        LOG_LINK.unlink()
        LOG_EXPORT.unlink()
    assert words == "The exported log does not have the bytes that the request's Range names."


NOT_FOUND = ("There is nothing at this address: an encoded slash or null byte (%2F, %00) is not "
             "taken. If every address below /cgi-bin/recording_backup.cgi/ answers so, the "
             "recording backup's program is missing." + MORE)


@pytest.mark.parametrize("segment", ["%2F", "%2f", "%00"])
def test_what_no_address_may_have_is_told(segment):
    assert said(404, "GET", f"{PROGRAM}/task/{segment}") == NOT_FOUND


@pytest.mark.parametrize("path", ["", "/task"])
def test_a_program_that_is_gone_is_told_so(path):
    elsewhere = CGI.rename(CGI.with_suffix(".away"))
    try:
        assert said(404, "GET", PROGRAM + path) == NOT_FOUND
    finally:
        elsewhere.rename(CGI)


def test_a_program_that_cannot_be_started_is_told_so():
    RUN.chmod(0o700)  # the starter's socket lies here
    try:
        words = said(503, "GET", PROGRAM + "/task")
    finally:
        RUN.chmod(0o750)
    assert words == "The web server cannot start the recording backup's program." + MORE


def test_the_chapters_that_are_named_are_there():
    manual = (SOURCE / "docs/operations.md").read_text()
    assert "\n## When it fails\n" in manual and "\n### A proxy with TLS in front\n" in manual


@pytest.mark.parametrize("status", [400, 401, 403, 404, 408, 411, 413, 414, 500, 503, 504])
def test_what_the_program_says_passes_as_it_is(status):
    reply = request("GET", f"{PROGRAM}/says/{status}")
    assert (reply.status, reply.body) == (status, b"{}\n\n")
    assert reply.headers["Content-Type"] == "application/json"
