"""The web server's rules, with a stand-in CGI program that shows what it was given."""
import socket

import pytest

from places import CGI, LOG_EXPORT, LOG_LINK, LOGS
from stand_in_program import PORT, PROGRAM, request, serving

EXPORT = "/cgi-bin/Ostra-RecordingbackLog.csv"


@pytest.fixture(scope="module", autouse=True)
def server(tmp_path_factory):
    with serving(tmp_path_factory.mktemp("stand-in")):
        LOG_EXPORT.write_text("a,b\n")
        LOG_LINK.symlink_to(LOG_EXPORT)
        (CGI.parent / "other.csv").write_text("secret\n")
        yield


def given(path, **options):
    """What the program was given in a request that reached it."""
    reply = request("PUT", PROGRAM + path, **options)
    assert reply.status == 200
    return reply.json


def test_the_program_gets_the_path_and_runs_as_root():
    seen = given("/task/7/active")
    assert seen["path"] == "/task/7/active"
    assert seen["user"] == 0


def test_the_client_address_is_the_servers_word_not_the_clients():
    assert given("/task", headers={"X-Forwarded-For": "203.0.113.9"})["client"] == "127.0.0.1"


def test_a_proxy_header_does_not_become_a_proxy_setting():
    assert given("/task", headers={"Proxy": "http://203.0.113.9/"})["proxy"] == ""


def test_a_download_comes_through_the_program_with_the_attachments_name():
    reply = request("GET", PROGRAM + "/task/log/file")
    assert (reply.status, reply.body) == (200, b"a,b\n")
    assert reply.headers["Content-Disposition"] == "attachment; filename=dated.csv"
    assert reply.headers["Content-Type"] == "application/octet-stream"


@pytest.mark.parametrize("path", [
    EXPORT,
    EXPORT + "/task/log/file",
    "//cgi-bin//Ostra-RecordingbackLog.csv",
    PROGRAM + "/../Ostra-RecordingbackLog.csv",
    "/cgi-bin/other.csv",
    "/cgi-bin/",
])
def test_nothing_but_the_program_can_be_asked_for(path):
    for headers in ({}, {"REDIRECT_STATUS": "200", "Redirect-Status": "200"}):
        assert request("GET", path, headers=headers).status == 403


def test_a_body_of_one_mebibyte_reaches_the_program():
    assert given("/task", body=b"x" * 2**20)["body"] == 2**20


def test_a_much_longer_body_is_refused():
    assert request("PUT", PROGRAM + "/task", body=b"x" * (2**20 + 2**17)).status == 413


def test_a_request_line_of_two_kibibytes_is_taken_and_a_longer_one_refused():
    room = 2048 - len(f"PUT {PROGRAM}/?x= HTTP/1.1")
    assert request("PUT", f"{PROGRAM}/?x={'y' * room}").status == 200
    assert request("PUT", f"{PROGRAM}/?x={'y' * (room + 10)}").status == 414
    # Room for the longest account and password that the share list takes, every byte encoded.
    query = f"ip=192.0.2.255&port=65535&user={'%20' * 255}&pwd={'A' * 340}&sid={'0' * 32}"
    assert request("GET", f"{PROGRAM}/share?{query}").status == 200


def test_trace_is_off_and_the_server_does_not_tell_its_version():
    reply = request("TRACE", PROGRAM + "/task")
    assert reply.status == 405
    assert reply.headers["Server"] == "Apache"


def test_session_identifiers_do_not_reach_the_logs():
    given("/task?sid=0123456789abcdef", headers={"Cookie": "sid=fedcba9876543210"})
    for log in LOGS.iterdir():
        text = log.read_text()
        assert "0123456789abcdef" not in text and "fedcba9876543210" not in text


def test_the_program_is_for_the_web_servers_group_alone():
    program = CGI.stat()
    assert program.st_mode & 0o7777 == 0o4750
    assert program.st_uid == 0


# --- pages of other sites -------------------------------------------------------------------------

# Where a browser asked, what it says of the page that has it ask, and the scheme that a proxy with
# TLS says it was asked by.
OWN = [
    ("127.0.0.1:8080", "http://127.0.0.1:8080", None),
    ("Recorder.Example", "HTTP://recorder.example", None),
    ("[::1]:8080", "http://[::1]:8080", None),
    ("recorder.example", "https://recorder.example", "https"),
    ("recorder.example:8443", "https://recorder.example:8443", "HTTPS"),
    ("recorder.example", "http://recorder.example", "http"),
]
OTHERS = [
    ("127.0.0.1:8080", "null", None),
    ("127.0.0.1:8080", "http://127.0.0.1", None),
    ("127.0.0.1:8080", "http://127.0.0.1:80800", None),
    ("127.0.0.1:8080", "http://127.0.0.1:808", None),
    ("127.0.0.1:8080", "https://127.0.0.1:8080", None),
    ("127.0.0.1:8080", "http://localhost:8080", None),
    ("127.0.0.1:8080", "http://127.0.0.1:8080.elsewhere.example", None),
    ("127.0.0.1:8080", "http://elsewhere.example/127.0.0.1:8080", None),
    ("127.0.0.1:8080", "http://elsewhere.example@127.0.0.1:8080", None),
    ("127.0.0.1:8080", "http://127.0.0.1:8080, http://127.0.0.1:8080", None),
    ("127.0.0.1:8080", "127.0.0.1:8080", None),
    ("127.0.0.1:8080", "elsewhere", None),
    ("recorder.example", "http://recorder.example", "https"),
    ("recorder.example", "https://recorder.example", "http"),
    ("recorder.example", "https://recorder.example", "https, http"),
    ("recorder.example", "https://elsewhere.example", "https"),
]


def status_for(host, origin, scheme, path="/task", method="PUT"):
    given = {"Host": host, "Origin": origin, "X-Forwarded-Proto": scheme}
    return request(method, PROGRAM + path,
                   headers={name: value for name, value in given.items() if value}).status


@pytest.mark.parametrize("host, origin, scheme", OWN)
def test_a_page_of_the_same_origin_is_served(host, origin, scheme):
    assert status_for(host, origin, scheme) == 200
    assert status_for(host, origin, scheme, "/task/log/file", "GET") == 200


@pytest.mark.parametrize("host, origin, scheme", OTHERS)
def test_a_page_of_another_origin_is_refused(host, origin, scheme):
    assert status_for(host, origin, scheme) == 403
    assert status_for(host, origin, scheme, "/task/log/file", "GET") == 403


def test_two_origins_are_refused_even_if_both_are_the_servers():
    with socket.create_connection(("127.0.0.1", PORT)) as client:
        client.sendall(f"GET {PROGRAM}/task HTTP/1.1\r\nHost: a\r\nOrigin: http://a\r\n"
                       "Origin: http://a\r\n\r\n".encode())
        assert client.recv(12) == b"HTTP/1.1 403"


@pytest.mark.parametrize("site, status", [
    ("same-origin", 200), ("none", 200), ("same-site", 403), ("cross-site", 403),
    ("Same-Origin", 403), ("same-origin, none", 403), ("same-originx", 403), ("x", 403)])
def test_what_a_browser_says_of_the_site_decides(site, status):
    own = {"Host": "127.0.0.1:8080", "Origin": "http://127.0.0.1:8080"}
    for headers in ({}, own):
        for method, path in (("PUT", "/task"), ("GET", "/share"), ("GET", "/task/log/file")):
            reply = request(method, PROGRAM + path, headers={**headers, "Sec-Fetch-Site": site})
            assert reply.status == status


@pytest.mark.parametrize("purpose", ["prefetch", "prefetch;prerender", "x"])
def test_nothing_is_done_for_a_browser_that_loads_pages_ahead(purpose):
    for method, path in (("GET", "/share"), ("GET", "/task/log/file")):
        headers = {"Sec-Fetch-Site": "none", "Sec-Purpose": purpose}
        assert request(method, PROGRAM + path, headers=headers).status == 403


@pytest.mark.parametrize("path", [PROGRAM + "/task", PROGRAM + "/crash", "/"])
def test_browsers_are_told_to_keep_addresses_from_other_sites(path):
    assert request("GET", path).headers["Referrer-Policy"] == "same-origin"
