"""Who gets in, who is written down as the client, and what nobody else may read."""
import base64
import sqlite3
import stat
import threading
import time
from pathlib import Path

import pytest

from places import CGI, DEBUG_FILE, LOG_LINK, LOGS, STATE
from processes import processes
from replies import SUCCESS
from sample_task import TASK, task
from stand_alone_recorder import ROOT_URL
from waiting import wait_until
from web_logs import log_lines

REFUSED = '{ "retCode": -1794506751.0, "mesg": "SID authorization fail." }'


def get(recorder, query="", headers=None):
    return recorder.request("GET", f"{ROOT_URL}/fuse{query}", headers=headers)


def is_refused(reply):
    return (reply.status, reply.text) == (401, REFUSED)


# --- sessions ------------------------------------------------------------------------------------


def test_request_without_a_session_is_refused(recorder):
    reply = get(recorder)
    assert is_refused(reply)
    assert reply.headers["Content-Type"] == "application/json"


def test_session_in_the_query_is_accepted(recorder):
    assert get(recorder, f"?sid={recorder.sid}").status == 200
    assert get(recorder, f"?a=1&sid={recorder.sid}&b").status == 200


def test_session_in_the_cookie_is_accepted(recorder):
    assert get(recorder, headers={"Cookie": f"sid={recorder.sid}"}).status == 200
    assert get(recorder, headers={"Cookie": f"a=b; sid={recorder.sid}; c=d"}).status == 200


def test_session_in_the_query_counts_before_the_cookie(recorder):
    cookie = {"Cookie": f"sid={recorder.sid}"}
    assert is_refused(get(recorder, "?sid=wrong", cookie))
    assert is_refused(get(recorder, "?sid=", cookie))


@pytest.mark.parametrize("change", [
    lambda sid: "", lambda sid: "0" * len(sid), lambda sid: sid[:-1], lambda sid: sid + "0",
    lambda sid: " " + sid, lambda sid: sid + " ", lambda sid: "' OR '1'='1", lambda sid: "%",
    lambda sid: "x" * 600])
def test_wrong_session_is_refused(recorder, change):
    wrong = "".join(f"%{byte:02x}" for byte in change(recorder.sid).encode())
    assert is_refused(get(recorder, "?sid=" + wrong))


def test_closed_session_is_refused(recorder):
    other = recorder.open_session("admin")
    recorder.ctl("session", "close", other)
    assert is_refused(get(recorder, f"?sid={other}"))
    assert get(recorder, f"?sid={recorder.sid}").status == 200


def test_expired_session_is_refused(recorder):
    with sqlite3.connect(STATE / "registry.db") as database:
        database.execute("UPDATE session SET expires_ms = ?", (int(time.time() * 1000) - 1,))
    database.close()
    assert is_refused(get(recorder, f"?sid={recorder.sid}"))


def test_session_of_a_removed_user_is_refused(recorder):
    recorder.add_user("guest", 11)
    sid = recorder.open_session("guest")
    assert get(recorder, f"?sid={sid}").status == 200
    recorder.ctl("user", "remove", "guest")
    assert is_refused(get(recorder, f"?sid={sid}"))


def test_only_administrators_get_in(recorder):
    for level, accepted in ((0, False), (10, False), (11, True), (12, True)):
        recorder.add_user(f"level {level}", level)
        sid = recorder.open_session(f"level {level}")
        reply = get(recorder, f"?sid={sid}")
        assert reply.status == 200 if accepted else is_refused(reply), level


def test_refused_request_changes_nothing_whatever_it_asks(recorder):
    recorder.create_successfully()
    before = recorder.stored_tasks()
    for method, path in (("PUT", "task"), ("POST", "task/1"), ("POST", "task/1/is_enable"),
                         ("DELETE", "task/1"), ("GET", "task"), ("GET", "nothing"),
                         ("PATCH", "task"), ("GET", "task/log/file")):
        reply = recorder.request(method, f"{ROOT_URL}/{path}?isStop=0", str(task()))
        assert is_refused(reply), (method, path)
    assert recorder.stored_tasks() == before
    assert len(recorder.events()) == 1


def test_refusal_arrives_whole_although_nobody_wants_the_body(recorder):
    for size in (1, 100_000, 1_114_112):
        assert is_refused(recorder.request("PUT", f"{ROOT_URL}/task", b"x" * size)), size


def test_sid_is_stored_as_a_hash_alone(recorder):
    for file in STATE.glob("registry.db*"):
        assert recorder.sid.encode() not in file.read_bytes(), file


# --- the client's address ------------------------------------------------------------------------


def last_event(recorder):
    event = recorder.events()[0]
    return event["ip"], event["user"]


def test_event_names_the_real_peer_and_user(recorder):
    recorder.add_user("Zoë Ω", 11)
    cookie = {"Cookie": f"sid={recorder.open_session('Zoë Ω')}"}
    reply = recorder.call("PUT", "task", task(), cookie, source="127.0.0.2")
    assert reply.text == SUCCESS
    assert last_event(recorder) == ("127.0.0.2", "Zoë Ω")


def test_forwarded_for_header_cannot_forge_the_address(recorder):
    for name in ("X-Forwarded-For", "x-forwarded-for", "X_Forwarded_For"):
        reply = recorder.call("PUT", "task", task(), {name: "203.0.113.9"}, source="127.0.0.3")
        assert reply.text == SUCCESS
        assert last_event(recorder) == ("127.0.0.3", "admin")


# --- what others may read ------------------------------------------------------------------------


def mode(path):
    return stat.S_IMODE(Path(path).lstat().st_mode)


def test_state_folder_and_databases_are_closed_to_other_users(recorder):
    recorder.create_successfully()
    assert mode(STATE) == 0o700
    assert mode(LOGS) == 0o700
    files = {path.name: mode(path) for path in STATE.glob("*.db*")}
    assert {"config.db", "registry.db", "events.db", "backupd.db"} <= set(files)
    assert set(files.values()) == {0o600}, files


def test_debug_file_is_closed_to_other_users(recorder):
    recorder.create_successfully()
    assert (mode(DEBUG_FILE.parent), mode(DEBUG_FILE)) == (0o700, 0o600)


def test_cgi_program_runs_as_root_and_only_the_web_server_may_start_it(recorder):
    installed = CGI.stat()
    assert mode(CGI) == 0o4750
    assert (CGI.owner(), CGI.group()) == ("root", "www-data")
    assert installed.st_size > 0
    assert mode(CGI.parent) == 0o755


def test_program_file_itself_cannot_be_downloaded(recorder):
    for path in ("/cgi-bin/", "/cgi-bin/../cgi-bin/", "/cgi-bin", "/etc/passwd",
                 "/cgi-bin/%2e%2e/%2e%2e/%2e%2e/etc/passwd"):
        status = recorder.request("GET", path).status
        assert status in (400, 403, 404), (path, status)
    assert not recorder.request("GET", ROOT_URL).body.startswith(b"\x7fELF")


def test_prepared_log_export_cannot_be_fetched_directly(recorder):
    recorder.create_successfully()
    name = TASK["taskName"].encode()
    download = recorder.call("GET", "task/log/file")
    assert download.status == 200 and name in download.body
    assert LOG_LINK.is_symlink()
    for query in ("", "?sid=" + recorder.sid):
        for path in (LOG_LINK.name, LOG_LINK.name + "/", "/" + LOG_LINK.name,
                     LOG_LINK.name + "/x", "./" + LOG_LINK.name):
            reply = recorder.request("GET", f"/cgi-bin/{path}{query}",
                                     headers={"Cookie": "sid=" + recorder.sid,
                                              "Redirect-Status": "200"})
            assert reply.status in (403, 404), path
            assert name not in reply.body, path


class CommandLines:
    """Looks at every process's arguments, over and over, until it is told to stop."""

    def __init__(self, words):
        self.words = words
        self.looks = 0
        self.programs = set()
        self.found = []
        self.done = threading.Event()
        self.thread = threading.Thread(target=self.look)

    def look(self):
        while not self.done.is_set():
            self.looks += 1
            for _, command in processes():
                self.programs.add(command.split(b" ")[0])
                if any(word in command for word in self.words):
                    self.found.append(command)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.done.set()
        self.thread.join()


def test_password_stands_in_no_argument_list_and_in_no_log(recorder):
    password = "Passw0rd-of-the-share"
    words = [password.encode(), base64.b64encode(password.encode())]
    with CommandLines(words) as seen:
        while seen.looks < 100 or str(CGI).encode() not in seen.programs:
            recorder.create_successfully(password=password, backupImmediately=True)
    assert seen.found == []
    for log in [*LOGS.iterdir(), DEBUG_FILE]:
        assert not any(word in log.read_bytes() for word in words), log


def test_session_stands_in_no_log_of_the_web_server(recorder):
    get(recorder, f"?sid={recorder.sid}")
    get(recorder, headers={"Cookie": f"sid={recorder.sid}"})
    recorder.request("GET", f"{ROOT_URL}/nothing?sid={recorder.sid}")
    # The server writes its line after it has sent the reply.
    wait_until(lambda: sum(ROOT_URL in line for line in log_lines("requests.log")) == 3, "the log")
    for log in LOGS.iterdir():
        assert recorder.sid.encode() not in log.read_bytes(), log
