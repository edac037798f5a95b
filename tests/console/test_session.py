"""Signing in and out, and what a session is worth."""
import fcntl
import json
import re
import signal
import subprocess
import time
from contextlib import contextmanager
from pathlib import Path

import pytest

from console_program import ADDRESS, Answer
from places import PROGRAMS
from waiting import SECONDS

SIGN_IN_FAILED, SIGN_IN_HELD_UP = 0x23180001, 0x23180002
OTHER = "203.0.113.7"
MINUTE = 60
DAY = 86_400_000  # milliseconds


def now():
    return int(time.time())


def fail(console, times, name="admin", address=ADDRESS):
    """Wrong passwords, each as if those before had been a long wait ago."""
    for _ in range(times):
        console.sql("registry", "UPDATE sign_in SET last_ms = last_ms - 600000 WHERE kind < 2")
        assert console.sign_in(name, "wrong", address=address).status == 401


def shift(console, milliseconds):
    """Has all that is kept of failures be so much older; of less than nothing, yet to come."""
    console.sql("registry", "UPDATE sign_in SET last_ms = last_ms - ?", milliseconds)


def begin_waits(console):
    """Has all waits begin when somebody looks, however late that is: a failure that is yet to come
    counts as one of that moment."""
    shift(console, -DAY)


# --- what a session is ----------------------------------------------------------------------------


def test_signing_in_gives_a_session_that_the_browser_keeps_to_itself(console):
    before = now()
    answer = console.sign_in()
    sid, attributes = answer.cookie
    assert answer.status == 200
    assert attributes == {"HttpOnly", "SameSite=Strict", "Path=/cgi-bin/", "Max-Age=43200"}
    assert re.fullmatch("[0-9a-f]{32}", sid)
    told = answer.json
    assert (told["user"], told["level"]) == ("admin", 11)
    assert before + 30 * MINUTE <= told["expires"] <= now() + 30 * MINUTE
    assert before + 720 * MINUTE <= told["ends"] <= now() + 720 * MINUTE
    assert console.get("/session", sid=sid).json == told


@pytest.mark.parametrize("variables", [{"HTTPS": "on"}, {"SCHEME": "https"}])
def test_behind_tls_the_cookie_is_for_tls_alone(console, variables):
    assert "Secure" in console.sign_in(**variables).cookie[1]


def test_signing_in_gives_a_new_identifier_and_closes_the_old_session(console):
    old = console.sign_in().cookie[0]
    new = console.sign_in(sid=old).cookie[0]
    assert new != old
    assert console.get("/session", sid=old).code == "no_session"
    assert console.get("/session", sid=new).status == 200


def test_a_session_that_somebody_else_has_made_up_is_not_taken_over(console):
    planted = "0" * 32
    assert console.sign_in(sid=planted).cookie[0] != planted
    assert console.get("/session", sid=planted).status == 401


def test_signing_out_ends_the_session_and_has_the_browser_forget_it(console):
    sid = console.sign_in().cookie[0]
    answer = console.call("DELETE", "/session", sid=sid)
    assert (answer.status, answer.body, answer.cookie[0]) == (204, b"", "")
    assert "Max-Age=0" in answer.cookie[1]
    assert console.get("/session", sid=sid).status == 401
    assert console.call("DELETE", "/session", sid=sid).status == 204


def test_the_prescribed_program_takes_the_same_session(console):
    sid = console.sign_in().cookie[0]
    for given, status in ((sid, b"200 OK"), ("0" * 32, b"401 Unauthorized")):
        done = subprocess.run([PROGRAMS / "recording_backup.cgi"], stdin=subprocess.DEVNULL,
                              env=console.environment_of("GET", "/channel", sid=given),
                              capture_output=True, timeout=SECONDS, check=False)
        assert done.stdout.startswith(b"Status: " + status)


def age(console, minutes):
    """Has all sessions be so much older."""
    console.sql("registry", "UPDATE session SET expires_ms = expires_ms - ?1, "
                "ends_ms = ends_ms - ?1, opened_ms = opened_ms - ?1", minutes * MINUTE * 1000)


def test_use_begins_the_half_hour_anew_and_a_poll_does_not(console):
    sid = console.sign_in().cookie[0]
    age(console, 20)
    polled = console.get("/session", "poll=1", sid=sid).json
    assert polled["expires"] <= now() + 10 * MINUTE
    before = now()
    used = console.get("/session", sid=sid).json
    assert used["expires"] >= before + 30 * MINUTE
    assert used["ends"] == polled["ends"]


def test_any_request_is_a_use_but_a_poll(console):
    sid = console.sign_in().cookie[0]
    age(console, 20)
    assert console.get("/log", "poll=1", sid=sid).status == 200
    assert console.get("/session", "poll=1", sid=sid).json["expires"] <= now() + 10 * MINUTE
    before = now()
    assert console.get("/log", sid=sid).status == 200
    assert console.get("/session", "poll=1", sid=sid).json["expires"] >= before + 30 * MINUTE


def test_half_an_hour_without_use_ends_a_session(console):
    sid = console.sign_in().cookie[0]
    age(console, 30)
    assert console.get("/session", sid=sid).code == "no_session"


def test_twelve_hours_end_a_session_that_is_used_all_the_time(console):
    sid = console.sign_in().cookie[0]
    for _ in range(35):
        age(console, 20)
        assert console.get("/session", sid=sid).status == 200
    assert console.get("/session", sid=sid).json["expires"] <= now() + 20 * MINUTE
    age(console, 20)
    assert console.get("/session", sid=sid).status == 401


def test_a_session_of_the_command_line_keeps_its_end(console):
    told = console.get("/session").json
    assert told["expires"] == told["ends"]


@pytest.mark.parametrize("sid", [None, "", "x", "0" * 32, "'; DROP TABLE session; --", "a" * 4000])
def test_foreign_identifiers_are_nobodys(console, sid):
    assert console.get("/session", sid=sid).code == "no_session"


def test_an_identifier_in_the_address_is_no_session(console):
    assert console.get("/session", "sid=" + console.sid, sid=None).status == 401


def test_whoever_is_no_administrator_gets_neither_session_nor_anything_else(console):
    console.add_user("viewer", level=3)
    answer = console.sign_in("viewer", "password of viewer")
    assert (answer.status, answer.code) == (403, "not_administrator")
    assert answer.headers["Set-Cookie"] is None
    assert console.get("/session", sid=console.open_session("viewer")).code == "not_administrator"


def resident_kilobytes(process):
    status = Path(f"/proc/{process.pid}/status").read_text()
    found = re.search(r"VmRSS:\s*(\d+) kB", status)
    return int(found[1]) if found else 0


def stopped_within_its_hash(console, body):
    """A sign-in that stands still while it hashes; the hash takes all of that memory."""
    while True:
        process = console.start(console.environment_of("POST", "/session", length=len(body),
                                                       sid=None))
        process.stdin.write(body)
        process.stdin.close()
        while process.poll() is None and resident_kilobytes(process) < 30000:
            pass
        if process.poll() is None:
            process.send_signal(signal.SIGSTOP)
            if resident_kilobytes(process) > 30000:
                return process
            process.send_signal(signal.SIGCONT)
        process.stdout.read()
        process.wait(timeout=SECONDS)


def test_another_password_shuts_out_who_is_signing_in_with_the_old_one(console):
    body = json.dumps({"name": "admin", "password": "password of admin"}).encode()
    process = stopped_within_its_hash(console, body)
    console.ctl("user", "password", "admin", given="another password")
    process.send_signal(signal.SIGCONT)
    answer = Answer(process.stdout.read())
    process.wait(timeout=SECONDS)
    process.stderr.close()
    assert (answer.status, answer.code) == (401, "wrong_sign_in")
    assert console.sql("registry", "SELECT count(*) FROM session") == [(0,)]
    assert console.sign_in(password="another password").status == 200


# --- failures -------------------------------------------------------------------------------------


@pytest.mark.parametrize("name, password", [
    ("admin", "wrong"), ("admin", ""), ("nobody", "password of admin"), ("", ""),
    ("ADMIN", "password of admin"), ("admin\x01", "x"), ("é" * 500, "x" * 4000)])
def test_wrong_names_and_passwords_are_told_alike(console, name, password):
    answer = console.sign_in(name, password)
    assert (answer.status, answer.json) == (401, {"error": {
        "code": "wrong_sign_in", "text": "The name or the password is wrong."}})
    assert answer.headers["Set-Cookie"] is None


def test_an_unknown_name_costs_the_same_hash(console):
    """Told by the memory that a hash takes, which a clock cannot blur."""
    def largest_memory(name):
        body = json.dumps({"name": name, "password": "x"}).encode()
        done = subprocess.run(
            ["/usr/bin/python3", "-c",
             "import resource, subprocess, sys; subprocess.run([sys.argv[1]], check=True); "
             "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss, file=sys.stderr)",
              PROGRAMS / "console.cgi"],
            input=body, capture_output=True, check=True, timeout=SECONDS,
            env=console.environment_of("POST", "/session", length=len(body), sid=None))
        assert b"wrong_sign_in" in done.stdout
        return int(done.stderr)

    assert largest_memory("admin") > 65536
    assert largest_memory("nobody") > 65536


@pytest.mark.parametrize("name", ["admin", "nobody"])
def test_failures_beyond_three_make_the_next_attempt_wait_ever_longer(console, name):
    fail(console, 3, name)
    waits = []
    for _ in range(8):
        fail(console, 1, name)
        begin_waits(console)
        answer = console.sign_in(name, "password of admin")
        assert (answer.status, answer.code) == (429, "too_early")
        seconds = answer.json["error"]["retry_after"]
        assert answer.headers["Retry-After"] == str(seconds)
        waits.append(seconds)
    assert waits == sorted(waits) and waits[0] <= 2 and 64 <= waits[-1] <= 300


def test_an_attempt_that_came_too_early_costs_nothing_but_itself(console):
    fail(console, 5)
    console.sql("registry", "UPDATE sign_in SET failures = 40")  # minutes to wait
    rows = console.sql("registry", "SELECT * FROM sign_in ORDER BY kind")
    for _ in range(3):
        assert console.sign_in().status == 429
    assert console.sql("registry", "SELECT * FROM sign_in ORDER BY kind") == rows


def test_the_wait_is_over_when_it_is_over(console):
    fail(console, 6)
    console.sql("registry", "UPDATE sign_in SET last_ms = last_ms - 5000")
    assert console.sign_in().status == 200
    assert console.sql("registry", "SELECT count(*) FROM sign_in WHERE kind < 2") == [(0,)]


@pytest.mark.parametrize("address", [ADDRESS, "127.0.0.1"])
def test_a_clock_that_was_set_back_holds_nobody_up_for_longer_than_the_failures_do(console,
                                                                                   address):
    fail(console, 6, address=address)
    begin_waits(console)
    assert console.sign_in(address=address).json["error"]["retry_after"] <= 4
    shift(console, 5000)
    assert console.sign_in(address=address).status == 200


def test_a_stranger_holds_the_administrator_up_for_half_a_minute_and_not_at_his_own_place(console):
    assert console.sign_in(address=OTHER).status == 200
    fail(console, 40, address=ADDRESS)
    begin_waits(console)
    elsewhere = console.sign_in(address="192.0.2.44")
    assert elsewhere.status == 429 and elsewhere.json["error"]["retry_after"] <= 30
    assert console.sign_in(address=ADDRESS).json["error"]["retry_after"] > 200
    assert console.sign_in(address=OTHER).status == 200


def test_an_address_that_tries_many_names_has_to_wait(console):
    for name in ("a", "b", "c", "d"):
        fail(console, 1, name)
    begin_waits(console)
    assert console.sign_in("e", "x").status == 429
    assert console.sign_in("e", "x", address=OTHER).status == 401


def test_nothing_is_held_against_the_machines_own_address(console):
    """A proxy has everybody come from there."""
    for name in ("a", "b", "c", "d", "e"):
        fail(console, 1, name, address="127.0.0.1")
    assert console.sign_in(address="127.0.0.1").status == 200


def test_who_comes_at_the_same_time_has_no_more_tries(console):
    """Parallel hashing is bounded by one turn, in which the wait is looked at again: the first
    whose turn it is fails for the fourth time, and the others have to wait, or are sent away."""
    fail(console, 3)
    body = json.dumps({"name": "admin", "password": "wrong"}).encode()
    processes = [console.start(console.environment_of("POST", "/session", length=len(body),
                                                      sid=None)) for _ in range(12)]
    for process in processes:
        process.stdin.write(body)
        process.stdin.close()
    statuses = []
    for process in processes:
        statuses.append(Answer(process.stdout.read()).status)
        assert process.wait(timeout=SECONDS) == 0
        process.stdout.close()
        process.stderr.close()
    assert set(statuses) <= {401, 429, 503}
    tried = statuses.count(401)
    assert 3 + tried == sum(failures for failures, in console.sql(
        "registry", "SELECT failures FROM sign_in WHERE kind = 0"))
    assert 1 <= tried < 12


ACCOUNTS, STRANGERS = 0, 1


@contextmanager
def turn_held(console, line):
    with open(console.path / "sign_in.lock", "wb") as lock:
        fcntl.lockf(lock, fcntl.LOCK_EX, 1, line)
        yield


def test_invented_names_keep_nobody_waiting_who_has_an_account(console):
    with turn_held(console, STRANGERS):
        assert console.sign_in(address="127.0.0.1").status == 200
        for name in ("admin", "nobody"):  # a refusal takes as long for both
            assert console.sign_in(name, "wrong", address="127.0.0.1").code == "busy"
    with turn_held(console, ACCOUNTS):
        assert console.sign_in("nobody", "wrong", address="127.0.0.1").status == 401
        assert console.sign_in(address="127.0.0.1").code == "busy"


def test_failures_and_waits_are_events_without_passwords_typed_as_names(console):
    fail(console, 1, "Secret password typed here")
    fail(console, 4)
    events = [(event["id"], event["user"], event["ip"], event["arguments"])
              for event in console.events()]
    told = ["Recording Backup", "", "admin"]
    assert (SIGN_IN_FAILED, "System", ADDRESS, told) in events
    assert sum(event[0] == SIGN_IN_HELD_UP for event in events) == 1 + 1  # address, then account
    assert "Secret" not in str(events)
    assert ["Recording Backup", "", "an unknown name"] in [event[3] for event in events]


def test_what_is_kept_of_failures_names_nobody(console):
    fail(console, 1, "Secret password typed here")
    files = [path.read_bytes() for path in console.path.iterdir() if path.is_file()]
    assert not any(b"Secret" in content for content in files)


@pytest.mark.skipif(b"__asan_init" in (PROGRAMS / "console.cgi").read_bytes(),
                    reason="a sanitizer's own memory is more than this test leaves")
def test_a_password_that_there_is_no_memory_to_check_is_not_called_wrong(console):
    body = json.dumps({"name": "admin", "password": "password of admin"}).encode()
    done = subprocess.run(["/usr/bin/prlimit", "--as=40000000", PROGRAMS / "console.cgi"],
                          input=body, capture_output=True, timeout=SECONDS, check=True,
                          env=console.environment_of("POST", "/session", length=len(body),
                                                     sid=None))
    answer = Answer(done.stdout)
    assert (answer.status, answer.code) == (503, "state_unavailable")
    assert b"memory" in done.stderr
    assert console.sql("registry", "SELECT count(*) FROM sign_in") == [(0,)]


# --- requests that are none -----------------------------------------------------------------------


@pytest.mark.parametrize("body, field", [
    (b"", None), (b"{", None), (b"[]", None), (b"null", None), (b"\xff", None),
    (b'{"name": "a", "name": "b", "password": "x"}', None),
    (b"{}", "name"), (b'{"name": 1, "password": "x"}', "name"),
    (b'{"name": "a"}', "password"), (b'{"name": "a", "password": null}', "password"),
    (b'{"name": "a\\u0000", "password": "x"}', "name"),
    (json.dumps({"name": "a" * 1024, "password": "x"}).encode(), "name"),
    (json.dumps({"name": "a", "password": "x" * 4097}).encode(), "password"),
])
def test_bodies_that_are_no_sign_in_are_refused_and_nobodys_failure(console, body, field):
    answer = console.call("POST", "/session", body)
    assert answer.status == 400
    assert answer.json["error"].get("field") == field
    assert console.sql("registry", "SELECT count(*) FROM sign_in") == [(0,)]


def test_a_body_that_is_too_long_is_refused_before_it_is_parsed(console):
    assert console.call("POST", "/session", b"x" * 20000).code == "body_too_long"


@pytest.mark.parametrize("length", ["40", "x", "-1", "99999999999999999999"])
def test_a_body_of_another_length_than_announced_is_refused(console, length):
    answer = console.call("POST", "/session", b"{}", length=length)
    assert answer.status in (400, 413)


@pytest.mark.parametrize("method, path, status", [
    ("PATCH", "/session", 405), ("GET", "/", 404), ("GET", "", 404), ("GET", "/session/x", 404),
    ("GET", "/../session", 404), ("GET", "/" + "x/" * 500, 404), ("", "/session", 405)])
def test_addresses_and_methods_that_there_are_not(console, method, path, status):
    assert console.call(method, path).status == status


def test_a_recorder_without_state_says_that_it_has_none(console):
    process = console.start({**console.environment_of("GET", "/session"),
                             "RECORDER_STATE": "/nowhere"})
    output, errors = process.communicate(timeout=SECONDS)
    assert (process.returncode, output) == (-6, b"")  # abort(3): nobody to be
    assert errors == b""
