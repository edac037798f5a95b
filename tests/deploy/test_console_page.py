"""How the web server serves the console's page: these files, these headers, and nothing else."""
import gzip

import pytest

import loopback
from places import CGI, CONSOLE, PAGE
from service_process import ended_afterwards, start_recorder

PORT = 8080
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
          "font-src 'none'; connect-src 'self'; form-action 'none'; base-uri 'none'; "
          "frame-ancestors 'none'")
SCRIPT = b"'use strict';\n"
TEXT = "<!DOCTYPE html><title>é</title>"


@pytest.fixture(scope="module", autouse=True)
def server():
    """With a page of its own, whatever the build has."""
    with ended_afterwards(start_recorder(PORT)):
        for path in PAGE.rglob("*"):
            if path.is_file():
                path.unlink()
        (PAGE / "assets").mkdir(parents=True, exist_ok=True)
        (PAGE / "index.html").write_text(TEXT)
        (PAGE / "index.html.gz").write_bytes(gzip.compress(TEXT.encode()))
        (PAGE / "assets/main.1a2b.js").write_bytes(SCRIPT)
        (PAGE / "assets/main.1a2b.js.br").write_bytes(b"as brotli has it")
        (PAGE / "assets/main.1a2b.js.gz").write_bytes(gzip.compress(SCRIPT))
        (PAGE / "assets/main.1a2b.css").write_text("p {}\n")
        (PAGE / "assets/icon.1a2b.svg").write_text("<svg/>")
        (PAGE.parent / "beside").write_text("secret")
        yield


def get(path, method="GET", **headers):
    return loopback.request(PORT, method, path, None,
                            {name.replace("_", "-"): value for name, value in headers.items()})


@pytest.mark.parametrize("path", ["/", "/index.html", "/?x=1"])
def test_the_page_is_asked_for_anew_each_time_and_comes_whole_or_not_at_all(path):
    reply = get(path)
    assert (reply.status, reply.body.decode()) == (200, TEXT)
    assert reply.headers["Content-Type"] == "text/html; charset=utf-8"
    assert reply.headers["Cache-Control"] == "no-cache"
    assert get(path, If_None_Match=reply.headers["ETag"]).status == 304


@pytest.mark.parametrize("name, kind", [
    ("main.1a2b.js", "text/javascript; charset=utf-8"),
    ("main.1a2b.css", "text/css; charset=utf-8"), ("icon.1a2b.svg", "image/svg+xml")])
def test_a_file_of_the_page_is_kept_for_a_year(name, kind):
    reply = get("/assets/" + name)
    assert (reply.status, reply.headers["Content-Type"]) == (200, kind)
    assert reply.headers["Cache-Control"] == "public, max-age=31536000, immutable"


@pytest.mark.parametrize("path, status", [("/", 200), ("/assets/main.1a2b.js", 200),
                                          ("/assets/none.js", 404), ("/assets/", 404)])
def test_every_reply_says_what_the_page_may_do(path, status):
    reply = get(path)
    assert reply.status == status
    assert reply.headers["Content-Security-Policy"] == POLICY
    assert reply.headers["X-Content-Type-Options"] == "nosniff"
    assert reply.headers["Referrer-Policy"] == "same-origin"


def test_what_is_not_there_is_not_kept():
    assert "immutable" not in get("/assets/none.js").headers["Cache-Control"]


@pytest.mark.parametrize("accepted, encoding, body", [
    ("br, gzip", "br", b"as brotli has it"), ("gzip, deflate", "gzip", gzip.compress(SCRIPT)),
    ("identity", None, SCRIPT), ("browser", None, SCRIPT)])
def test_a_file_comes_packed_for_those_who_take_it(accepted, encoding, body):
    reply = get("/assets/main.1a2b.js", Accept_Encoding=accepted)
    assert (reply.status, reply.headers["Content-Encoding"]) == (200, encoding)
    assert gzip.decompress(reply.body) == SCRIPT if encoding == "gzip" else reply.body == body
    assert reply.headers["Content-Type"] == "text/javascript; charset=utf-8"
    assert "Accept-Encoding" in reply.headers["Vary"]


@pytest.mark.parametrize("path", ["/", "/index.html", "/?x=1"])
def test_the_page_itself_comes_packed_too(path):
    reply = get(path, Accept_Encoding="gzip, deflate, br")
    assert (reply.status, reply.headers["Content-Encoding"]) == (200, "gzip")
    assert gzip.decompress(reply.body).decode() == TEXT
    assert reply.headers["Content-Type"] == "text/html; charset=utf-8"
    assert reply.headers["Cache-Control"] == "no-cache"
    assert get(path, Accept_Encoding="gzip", If_None_Match=reply.headers["ETag"]).status == 304


def test_a_file_without_packed_forms_comes_as_it_is():
    reply = get("/assets/main.1a2b.css", Accept_Encoding="br, gzip")
    assert (reply.headers["Content-Encoding"], reply.body) == (None, b"p {}\n")


@pytest.mark.parametrize("path", [
    "/../beside", "/%2e%2e/beside", "/assets/../../beside", "/assets/%2e%2e/%2e%2e/beside",
    "/..%2fbeside", "/.%2e/beside", "/assets/..%5c..%5cbeside", "//../beside",
    "/recorder/sbin/recorderctl", "/cgi-bin/../recorder/sbin/recorderctl", "/var/lib/recorder/",
    "/etc/passwd", "/home/httpd/recorder/share/recorder/recorder.conf", "/beside",
])
def test_no_path_leads_out_of_the_pages_folder(path):
    reply = get(path)
    assert reply.status in (400, 403, 404)
    assert b"secret" not in reply.body and b"root:" not in reply.body


@pytest.mark.parametrize("method", ["POST", "PUT", "DELETE"])
def test_the_page_is_only_read(method):
    assert get("/index.html", method).status == 403


# --- the back end ---------------------------------------------------------------------------------

PROGRAM = "/cgi-bin/console.cgi"


def test_the_back_end_belongs_to_the_recorders_user_and_is_for_the_web_server():
    console, other = CONSOLE.stat(), CGI.stat()
    assert console.st_mode & 0o7777 == 0o4750
    assert (console.st_uid, console.st_gid) == (0, other.st_gid)  # the state is root's here


def test_whoever_has_no_session_is_told_so():
    reply = get(PROGRAM + "/session")
    assert (reply.status, reply.json["error"]["code"]) == (401, "no_session")
    assert reply.headers["Content-Type"] == "application/json"
    assert reply.headers["Cache-Control"] == "no-store"


@pytest.mark.parametrize("headers", [
    {"Origin": "http://elsewhere.example"}, {"Origin": "null"}, {"Sec-Fetch-Site": "cross-site"},
    {"Sec-Fetch-Site": "same-site"}, {"Sec-Purpose": "prefetch"}])
@pytest.mark.parametrize("method, path", [
    ("GET", "/session"), ("POST", "/session"), ("DELETE", "/session"), ("GET", "/tasks"),
    ("POST", "/shares"), ("PATCH", "/alerts"), ("POST", "/alerts/test"), ("GET", "/log.csv")])
def test_pages_of_other_sites_are_refused(headers, method, path):
    reply = loopback.request(PORT, method, PROGRAM + path, None, headers)
    assert reply.status == 403
    assert b"a page of another site" in reply.body.replace(b"\n", b" ")
