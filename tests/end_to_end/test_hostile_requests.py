"""Bodies and texts that nobody should send: a documented reply, and the server goes on."""
import json
import socket

import pytest

from places import CGI
from processes import processes
from replies import (INPUT_FORMAT_ERROR, INVALID_VALUE, PARSE_FAIL, STORE_BAD_TEXT, SUCCESS, error)
from sample_task import task, task_body
from stand_alone_recorder import ROOT_URL
from waiting import wait_until

MEBIBYTE = 1024 * 1024


def running_requests():
    return [pid for pid, command in processes() if command.startswith(str(CGI).encode())]


def assert_goes_on(recorder):
    """Nothing is left behind and the next request is served."""
    wait_until(lambda: not running_requests(), "the end of every request")
    recorder.create_successfully(taskName="afterwards")
    assert recorder.stored_tasks()[-1]["taskName"] == "afterwards"


# --- bodies --------------------------------------------------------------------------------------


def padded(size):
    text = task_body()
    return text + " " * (size - len(text))


def test_body_of_a_mebibyte_is_taken_and_one_byte_more_counts_as_no_body(recorder):
    assert recorder.create(padded(MEBIBYTE)).text == SUCCESS
    for size in (MEBIBYTE + 1, 1_114_112):
        assert recorder.create(padded(size)).text == error(INPUT_FORMAT_ERROR)
    assert len(recorder.stored_tasks()) == 1
    assert_goes_on(recorder)


def test_body_far_beyond_a_mebibyte_is_refused_by_the_web_server(recorder):
    assert recorder.create(padded(1_114_113)).status == 413
    # One that big is answered before it is sent whole.
    with socket.create_connection(("127.0.0.1", recorder.port)) as client:
        client.sendall(head(recorder, 10**12))
        assert client.recv(100).startswith(b"HTTP/1.1 413 ")
    assert_goes_on(recorder)


@pytest.mark.parametrize("length", ["-1", "x", "1e3", "99999999999999999999", "1, 2"])
def test_length_that_is_no_length_is_refused_by_the_web_server(recorder, length):
    with socket.create_connection(("127.0.0.1", recorder.port)) as client:
        client.sendall(head(recorder, length))
        assert client.recv(100)[:12] in (b"HTTP/1.1 400", b"HTTP/1.1 413")
    assert_goes_on(recorder)


def test_chunked_body_is_refused_by_the_web_server(recorder):
    for chunks in ([task_body().encode()], [b"x" * 65536] * 40):
        reply = recorder.call("PUT", "task", iter(chunks), {"Transfer-Encoding": "chunked"},
                              encode_chunked=True)
        assert reply.status == 411
    assert recorder.stored_tasks() == []
    assert_goes_on(recorder)


NO_TASK = [
    ("", INPUT_FORMAT_ERROR), (" ", INPUT_FORMAT_ERROR), ("{", INPUT_FORMAT_ERROR),
    ('{"taskName":', INPUT_FORMAT_ERROR), ("null", INPUT_FORMAT_ERROR), ("\0", INPUT_FORMAT_ERROR),
    ("[" * 100_000, INPUT_FORMAT_ERROR), ('{"a":' * 100_000, INPUT_FORMAT_ERROR),
    ("{}", PARSE_FAIL), ("[]", PARSE_FAIL), ("1", PARSE_FAIL), ('"text"', PARSE_FAIL),
    ("true", PARSE_FAIL), (json.dumps([task()]), PARSE_FAIL)]


def test_body_that_is_no_task_is_refused(recorder):
    for text, code in NO_TASK:
        assert recorder.create(text).text == error(code), text[:30]
    assert recorder.stored_tasks() == []


def test_member_of_the_wrong_kind_is_refused(recorder):
    for member, good in task().items():
        for bad in (None, {}, [{}], 1.5, "text", 7, True):
            if type(bad) is type(good):
                continue
            wrong = recorder.create(**{member: bad}).text
            if member in ("backupDays", "remoteKeepRecDays"):
                assert wrong == SUCCESS, (member, bad)  # as if absent, and that is allowed
            elif member == "chIdxList" and isinstance(bad, list):
                assert wrong == SUCCESS
            else:
                assert wrong == error(PARSE_FAIL), (member, bad)


def test_value_outside_its_table_is_refused(recorder):
    for member in ("backupType", "scheduleType", "recordingType", "recordingFormat",
                   "remoteOverwriteType"):
        for text in ("", "Daily", task()[member].upper(), task()[member] + " ", "x" * 10_000):
            assert recorder.create(**{member: text}).text == error(INVALID_VALUE), member
    for member in ("backupDays", "remoteKeepRecDays"):
        assert recorder.create(**{member: 100}).text == error(INVALID_VALUE)
        assert recorder.create(**{member: 2**40}).text == error(INVALID_VALUE)
    assert recorder.stored_tasks() == []


# --- clients that do not finish ------------------------------------------------------------------


def head(recorder, length):
    return (f"PUT {ROOT_URL}/task HTTP/1.1\r\nHost: recorder\r\nCookie: sid={recorder.sid}\r\n"
            f"Content-Length: {length}\r\n\r\n").encode()


def test_body_that_does_not_end_keeps_nobody_else_waiting_and_creates_nothing(recorder):
    text = task_body().encode()
    clients, begun = [], set()
    for _ in range(5):  # seen one by one: the first may be ended before the last begins
        clients.append(socket.create_connection(("127.0.0.1", recorder.port)))
        clients[-1].sendall(head(recorder, len(text)) + text[:-1])
        wait_until(lambda: set(running_requests()) - begun, "the request to begin")
        begun.update(running_requests())
    assert recorder.call("GET", "fuse").status == 200
    for client in clients:
        client.close()
    wait_until(lambda: not running_requests(), "the end of the requests")
    assert recorder.stored_tasks() == []
    assert_goes_on(recorder)


def test_client_that_leaves_before_the_reply_does_no_harm(recorder):
    text = task_body().encode()
    for _ in range(30):
        with socket.create_connection(("127.0.0.1", recorder.port)) as client:
            client.sendall(head(recorder, len(text)) + text)
    wait_until(lambda: len(recorder.stored_tasks()) == 30, "the requests that arrived whole")
    assert_goes_on(recorder)


def test_bytes_that_are_no_request_do_no_harm(recorder):
    for rubbish in (b"\0" * 1000, b"GET\r\n\r\n", b"\x16\x03\x01\x02\x00\x01", b"A" * 20_000):
        with socket.create_connection(("127.0.0.1", recorder.port)) as client:
            client.sendall(rubbish + b"\r\n\r\n")
            try:
                answer = client.recv(100)
            except ConnectionResetError:
                answer = b""
            assert answer[:10] in (b"", b"HTTP/1.1 4", b"<!DOCTYPE "), answer
    assert_goes_on(recorder)


def test_query_too_long_or_with_too_many_parameters_is_refused(recorder):
    sid = f"?sid={recorder.sid}"
    assert recorder.request("GET", f"{ROOT_URL}/fuse{sid}&" + "x" * 5000).status == 414
    # More than 256 parameters cannot be parsed, so nobody can be known.
    assert recorder.request("GET", f"{ROOT_URL}/fuse{sid}" + "&a" * 255).status == 200
    assert recorder.request("GET", f"{ROOT_URL}/fuse{sid}" + "&a" * 256).status == 401


# --- texts ---------------------------------------------------------------------------------------

# What is sent, and what is stored of it. A backslash is stripped from the settings text wherever
# JSON writes one: what was escaped stands bare there, a control character as its letter.
KEPT = [
    ("", ""), (" ", " "), ("'; DROP TABLE task; --", "'; DROP TABLE task; --"),
    ("$(reboot)`reboot`;reboot&|", "$(reboot)`reboot`;reboot&|"), ("%s%n%x%p", "%s%n%x%p"),
    ("/a/../b/", "/a/../b/"), ("<b>&amp;'", "<b>&amp;'"), ("=1+1", "=1+1"), ("Zoë 📷", "Zoë 📷"),
    ("\u202eabc", "\u202eabc"), ("\x7f", "\x7f"), ("x" * 10_000, "x" * 255),
    ("é" * 10_000, "é" * 127), ("📷" * 10_000, "📷" * 63), ("a\0b", "a"), ("a\nb", "anb"),
    ("a\x01b", "au0001b"), ("a\x1bb", "au001bb"), ("a\\\\b", "a\\\\b"), ("a\\tb", "a\\tb"),
    ("\\\\server\\share", "\\\\server\\share"), ("a\\cb", "a\\cb"), ("a\\", "a\\"),
    ("DOMAIN\\ubeef", "DOMAIN\\ubeef"), ("\ud83d", "\ufffd")]

# What the store refuses, because the stripped text is no JSON any more or was never UTF-8.
REFUSED = [b'a\\"b', b'\\"', b'a\\\\\\"b', b"\xff", b"\xc3(", b"\xc0\xaf", b"\xe0\x80\xaf",
           b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xf8\x88\x80\x80\x80", b"\x80"]

TEXTS = ("taskName", "serverIP", "username", "password", "destPath")


@pytest.mark.parametrize("member", TEXTS)
def test_hostile_text_is_stored_as_documented(recorder, member):
    for sent, kept in KEPT:
        assert recorder.create(**{member: sent}).text == SUCCESS, sent[:30]
        stored = recorder.stored_tasks()[-1]
        assert stored[member] == kept
        others = {name: stored[name] for name in TEXTS if name != member}
        assert others == {name: task()[name] for name in others}
    assert len(recorder.stored_tasks()) == len(KEPT)
    assert [entry[member] for entry in recorder.list_tasks()] == [kept for _, kept in KEPT]


@pytest.mark.parametrize("member", TEXTS)
def test_text_that_the_store_refuses_changes_nothing(recorder, member):
    recorder.create_successfully(taskName="before")
    before = recorder.stored_tasks()
    good = task_body(**{member: "REPLACED"}).encode()
    for sent in REFUSED:
        body = good.replace(b"REPLACED", sent)
        assert recorder.create(body).text == error(STORE_BAD_TEXT), sent
        assert recorder.call("POST", "task/1", body).text == error(STORE_BAD_TEXT), sent
    assert recorder.stored_tasks() == before
    assert len(recorder.events()) == 1


def test_hostile_task_identifier_finds_and_changes_nothing(recorder):
    recorder.create_successfully()
    before = recorder.stored_tasks()
    for text in ("%00", "1%00", "%ff", "1'%20OR%20'1'='1", "*", "1%20", "%2B1", "1.0", "0x1",
                 "9" * 1900, "-1", "%22", "1%0A"):
        status = recorder.call("GET", f"task/status/{text}")
        assert status.status == 404 or status.json["status"] == "", text
        change = recorder.call("POST", f"task/{text}", task(taskName="changed"))
        assert change.status == 404 or change.json["ret_code"] != 0, text
    assert recorder.stored_tasks() == before


def test_hostile_user_name_reaches_the_event_log_unchanged(recorder):
    name = "o'Brien \"%s\" $(id) <b>"
    recorder.add_user(name, 11)
    cookie = {"Cookie": "sid=" + recorder.open_session(name)}
    assert recorder.call("PUT", "task", task(), cookie).text == SUCCESS
    assert recorder.events()[0]["user"] == name
    assert [entry["user"] for entry in recorder.call("GET", "task/log").json["logs"]] == [name]
