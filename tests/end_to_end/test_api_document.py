"""Runs every request of docs/api.md in order and compares the replies with the page."""
import re
import time
from http.client import responses

import pytest

from places import SOURCE, STORAGE
from stand_alone_recorder import ROOT_URL, Recorder
from waiting import SECONDS

PAGE = (SOURCE / "docs/api.md").read_text()
ANY = "<any>"


class Message:
    """One example: first line, headers, body lines."""

    def __init__(self, text):
        head, _, body = text.partition("\n\n")
        self.first, *headers = head.splitlines()
        self.headers = dict(line.split(": ", 1) for line in headers)
        self.body = [line.strip() for line in body.splitlines()]


def examples():
    """Pairs of request and reply."""
    messages = [Message(text) for text in re.findall(r"^```http\n(.*?)\n```$", PAGE, re.M | re.S)]
    requests, replies = messages[::2], messages[1::2]
    assert len(requests) == len(replies)
    assert all(reply.first.startswith("HTTP/1.1 ") for reply in replies)
    return list(zip(requests, replies))


def fits(wanted, real):
    """Whether `real` is `wanted`, where <any> is any text that is not empty."""
    pattern = ".+?".join(re.escape(piece) for piece in wanted.split(ANY))
    return re.fullmatch(pattern, real, re.S) is not None


def body_of(message):
    if message.headers["Content-Type"] == "application/json":
        return " ".join(message.body) + "\n\n"
    return "\r\n".join(message.body)


def send(recorder, request):
    method, path = request.first.replace("<sid>", recorder.sid).split(" ")
    headers = {name: value.replace("<sid>", recorder.sid)
               for name, value in request.headers.items()}
    return recorder.request(method, path, "\n".join(request.body) or None, headers)


@pytest.fixture
def documented_recorder():
    with Recorder(zone="UTC0") as recorder:
        for index, guid, name in ((0, "5F0C", "Front door"), (1, "5F0D", "Yard")):
            (STORAGE / guid).mkdir()
            recorder.add_channel(index, name, STORAGE / guid, guid=guid)
        recorder.ctl("channel", "state", "0", "0")
        day = STORAGE / "5F0D/2024-03-01"
        day.mkdir()
        (day / "08-00-00.mp4").write_bytes(b"recording")
        recorder.ctl("channel", "remove", "1")
        yield recorder


def settled_reply(recorder, request, wanted):
    """The reply; a GET is repeated until it fits, since the daemon works on meanwhile."""
    deadline = time.monotonic() + SECONDS
    real = send(recorder, request)
    while request.first.startswith("GET ") and not fits(body_of(wanted), real.body.decode()):
        if time.monotonic() > deadline:
            break
        time.sleep(0.1)
        real = send(recorder, request)
    return real


def test_every_request_of_the_page_gets_the_reply_of_the_page(documented_recorder):
    different = []
    for request, wanted in examples():
        real = settled_reply(documented_recorder, request, wanted)
        first = f"HTTP/1.1 {real.status} {responses[real.status]}"
        assert wanted.first == first, request.first
        for name, value in wanted.headers.items():
            assert fits(value, real.headers[name]), (request.first, name, real.headers[name])
        if not fits(body_of(wanted), real.body.decode()):
            different.append((request.first, body_of(wanted), real.body.decode()))
    assert different == []


def test_comparison_sees_every_difference_but_the_volatile_ones():
    assert fits('{ "a": <any>, "b": 1 }', '{ "a": 42, "b": 1 }')
    assert not fits('{ "a": <any>, "b": 1 }', '{ "a": , "b": 1 }')
    assert not fits('{ "a": <any>, "b": 1 }', '{ "a": 42, "b": 2 }')
    assert not fits('{ "b": 1 }', '{ "b": 1 } ')
    assert not fits("a.b", "axb")


def without_ids(path):
    return re.sub(r"/(<id>|\d+)", "/<id>", path)


def routes_of_the_page():
    rows = re.findall(r"^\| (GET|PUT|POST|DELETE) \| (\S+) \|", PAGE, re.M)
    return {(method, path.replace("`", "")) for method, path in rows}


def test_every_route_of_the_page_has_an_example():
    shown = set()
    for request, _ in examples():
        method, address = request.first.split(" ")
        shown.add((method, without_ids(address.partition("?")[0].removeprefix(ROOT_URL + "/"))))
    assert routes_of_the_page() <= shown


def test_every_route_of_the_program_is_on_the_page():
    table = re.findall(r"\{Method::(\w+), \{(.*?)\}", (SOURCE / "cgi/routes.cpp").read_text())
    assert len(table) >= 14
    of_the_program = set()
    for method, segments in table:
        words = [word.strip('" ').replace("ANY", "<id>") for word in segments.split(",")]
        path = "/".join(word for word in words if word != "NONE")
        # These take an identifier behind what the table looks at.
        path += {"task/status": "/<id>"}.get(path, "/<id>" if method == "del" else "")
        of_the_program.add((method.upper().replace("DEL", "DELETE"), path))
    assert of_the_program == routes_of_the_page()


def test_every_code_of_the_program_is_on_the_page_with_its_number():
    source = (SOURCE / "cgi/result_code.h").read_text()
    codes = re.findall(r"int (CGI_\w+) = result_code\((0x\w+)\)", source)
    rows = re.findall(r"^\| (0x\w+) \| `(CGI_\w+)` \| (\S+) \|", PAGE, re.M)
    assert sorted((name, code) for code, name, _ in rows) == sorted(codes)
    for code, name, shown in rows:
        value = int(code, 16)
        forms = {f"{value}.0", f"{value - 2**32}.0", f'"{code}"', "-"}
        assert shown in forms, name
