"""The console behind the real web server, with real services and a real Samba server."""
import json
import sqlite3
from contextlib import closing

import pytest

from places import STATE
from samba_server import PASSWORD, USER, SambaServer
from waiting import SECONDS, wait_until
from web_hook_server import HOOK_PORT, WebHookServer

CONSOLE = "/cgi-bin/console.cgi"


def console(recorder, method, path, body=None, sid=None, **headers):
    if body is not None:
        body = json.dumps(body)
    if sid:
        headers["Cookie"] = f"sid={sid}"
    return recorder.request(method, f"{CONSOLE}/{path}", body, headers)


def sign_in(recorder, password="password of admin", **headers):
    return console(recorder, "POST", "session", {"name": "admin", "password": password}, **headers)


def cookie_of(reply):
    value, *attributes = reply.headers["Set-Cookie"].split("; ")
    return value.removeprefix("sid="), set(attributes)


def settled_tasks(recorder, sid):
    """What is told once the daemon has looked at all schedules, as it does each second, by a
    console that hears both services in its own."""
    def is_settled():
        nonlocal told
        told = console(recorder, "GET", "tasks", sid=sid)
        return (all(task["next_run"] for task in told.json["tasks"])
                and told.json["services"] == {"backup": True, "log": True})

    told = None
    wait_until(is_settled, "the schedules' next times, and both services")
    return told


def test_a_browser_signs_in_acts_and_signs_out(recorder):
    reply = sign_in(recorder)
    sid, attributes = cookie_of(reply)
    assert reply.status == 200 and "Secure" not in attributes
    assert {"HttpOnly", "SameSite=Strict", "Path=/cgi-bin/"} <= attributes
    recorder.sid = sid
    recorder.create_successfully(taskName="Doors")
    told = settled_tasks(recorder, sid)
    assert [task["name"] for task in told.json["tasks"]] == ["Doors"]
    again = recorder.request("GET", f"{CONSOLE}/tasks", None,
                             {"Cookie": f"sid={sid}", "If-None-Match": told.headers["ETag"]})
    assert (again.status, again.body) == (304, b"")
    out = console(recorder, "DELETE", "session", sid=sid)
    assert (out.status, out.body, cookie_of(out)[0]) == (204, b"", "")
    assert console(recorder, "GET", "tasks", sid=sid).status == 401
    assert recorder.call("GET", "task").status == 401


@pytest.mark.parametrize("method, path, status", [
    ("POST", "console.cgi/schedule/preview", 401), ("POST", "console.cgi/nothing", 404),
    ("PUT", "console.cgi/tasks", 405), ("POST", "console.cgi/shares?" + "&x" * 300, 400),
    ("POST", "recording_backup.cgi/task/1", 401), ("PUT", "recording_backup.cgi/nothing", 401)],
    ids=lambda value: str(value)[:30])
def test_a_refusal_arrives_whole_though_nobody_wanted_the_body(recorder, method, path, status):
    body = json.dumps({"sent": "x" * 100})
    replies = [recorder.request(method, f"/cgi-bin/{path}", body, {"Cookie": "sid=0"})
               for _ in range(50)]
    assert {reply.status for reply in replies} == {status}
    assert len({reply.body for reply in replies}) == 1


def test_behind_a_proxy_with_tls_the_cookie_is_for_tls_alone(recorder):
    reply = recorder.request("POST", f"{CONSOLE}/session",
                             json.dumps({"name": "admin", "password": "password of admin"}),
                             {"X-Forwarded-Proto": "https"})
    assert "Secure" in cookie_of(reply)[1]


def forbid_waits_to_end():
    """As if the clock had been set back since the last failure: a wait lasts whenever somebody
    comes next, while without this the first one ends a second after the failure."""
    with closing(sqlite3.connect(STATE / "registry.db", timeout=SECONDS)) as database, database:
        database.execute("UPDATE sign_in SET last_ms = last_ms + ?", (SECONDS * 1000,))


def test_wrong_passwords_are_events_and_have_to_wait(recorder):
    for _ in range(4):
        assert sign_in(recorder, "wrong").status == 401
    forbid_waits_to_end()
    reply = sign_in(recorder)
    assert (reply.status, reply.json["error"]["code"]) == (429, "too_early")
    assert int(reply.headers["Retry-After"]) >= 1
    events = console(recorder, "GET", "log?kind=sign_ins", sid=recorder.sid).json["events"]
    assert [event["address"] for event in events] == ["127.0.0.1"] * 5
    assert "Sign-in failed: admin" in [event["text"] for event in events]
    assert recorder.call("GET", "task/log").json["logs"] == []


@pytest.mark.parametrize("body, status", [(b"", 400), (b"{", 400), (b"\xff\xfe", 400),
                                          (b"x" * 20000, 413), (b"x" * 2**20, 413)],
                         ids=["none", "cut", "no text", "long", "very long"])
def test_bodies_that_are_no_sign_in_get_an_answer(recorder, body, status):
    reply = recorder.request("POST", f"{CONSOLE}/session", body)
    assert reply.status == status and reply.json["error"]["text"]


@pytest.mark.parametrize("path", ["%00", "a%2Fb", "task/%2e%2e/runs", "channel/<script>/days"])
def test_strange_addresses_are_answered_in_text(recorder, path):
    reply = console(recorder, "GET", path, sid=recorder.sid)
    assert reply.status in (400, 404) and b"<script>" not in reply.body


def test_the_shares_of_a_real_server_are_listed(recorder, tmp_path):
    tmp_path.chmod(0o755)
    with SambaServer(tmp_path / "server", {"cameras": {"path": tmp_path, "comment": "a | b"},
                                           "Überwachung": {"path": tmp_path}}) as samba:
        def ask(**changes):
            return console(recorder, "POST", "shares", sid=recorder.sid, body={
                "server": "127.0.0.1", "port": samba.port, "user": USER, "password": PASSWORD,
                **changes})

        shares = {share["name"]: share["comment"] for share in ask().json["shares"]}
        assert shares["cameras"] == "a | b" and "Überwachung" in shares
        assert ask(password="wrong").json["error"]["code"] == "wrong_account"
    assert ask().json["error"]["code"] == "no_server"


def test_alerts_are_set_up_and_tried_out(recorder):
    hook = f"http://127.0.0.1:{HOOK_PORT}/hook"
    reply = console(recorder, "PATCH", "alerts", {"web_hook": hook}, sid=recorder.sid)
    assert reply.status == 200
    assert {"web_hook": hook}.items() <= {one["key"]: one["value"]
                                          for one in reply.json["settings"]}.items()
    with WebHookServer() as taken:
        tested = console(recorder, "POST", "alerts/test", sid=recorder.sid)
    assert tested.json["receivers"] == [{"way": "web_hook", "recipient": "", "arrived": True,
                                         "words": ""}]
    [(path, _, body)] = taken.requests
    assert path == "/hook" and json.loads(body)["event"] == "test"
