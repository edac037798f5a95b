"""Alerts in the console: settings by the command's rules, what waits, and a test that is sent."""
import signal
import threading

import pytest

from console_program import ADDRESS, ConsoleProgram
from mail_server import MAIL_PORT, MailServer
from service_process import running
from waiting import SECONDS, wait_until
from web_hook_server import HOOK_PORT, WebHookServer, plain

ALERTS_CHANGED = 0x23190001
HOOK = f"http://127.0.0.1:{HOOK_PORT}/hook"
CHANGEABLE = {"mail_from", "mail_password", "mail_to", "smtp_security", "smtp_server", "smtp_user",
              "web_hook", "web_hook_secret"}
OF_THE_MACHINE = {"ca_file": "/etc/ca.pem", "smtp_password_file": "/etc/passwd",
                  "sendmail": "/bin/sh"}
MAIL = {"mail_to": "a@example.org, b@example.org", "mail_from": "nvr@example.org",
        "smtp_server": f"127.0.0.1:{MAIL_PORT}", "smtp_security": "none"}

# Each value for one kind of setting, and whether it is one.
VALUES = [
    ("mail_to", "root"), ("mail_to", "a@b, c@d"), ("mail_to", ""), ("mail_to", "a b"),
    ("mail_to", "example.org"), ("mail_to", ",".join(["a@b"] * 101)), ("mail_from", "a@b, c@d"),
    ("mail_from", "-x@y"), ("smtp_server", "mail:25"), ("smtp_server", "mail:0"),
    ("smtp_server", "[::1]:587"), ("smtp_server", "a b"), ("smtp_security", "tls"),
    ("smtp_security", ""), ("smtp_security", "ssl"), ("smtp_user", "x" * 4095),
    ("smtp_user", "x" * 4096), ("smtp_user", "a\nb"), ("smtp_user", "é"), ("web_hook", HOOK),
    ("web_hook", "ftp://x/"), ("web_hook", "https://user:pass@x/"), ("web_hook", "https://x/#y")]


@pytest.fixture
def console(tmp_path):
    """With the daemon's database, which only the daemon makes."""
    made = ConsoleProgram(tmp_path / "state")
    with running("recording-backupd", made):
        pass
    return made


def settings(console):
    return {setting["key"]: setting for setting in console.get("/alerts").json["settings"]}


def change(console, **values):
    return console.call("PATCH", "/alerts", values)


def changed(console, **values):
    answer = change(console, **values)
    assert answer.status == 200, answer.json
    return {setting["key"]: setting for setting in answer.json["settings"]}


def stored(console, key):
    done = console.run("recorderctl", "config", "get", "alert", key)
    return done.stdout.rstrip("\n") if done.returncode == 0 else None


# --- settings -------------------------------------------------------------------------------------


def test_every_setting_of_alerts_is_told_with_what_counts_otherwise(console):
    told = settings(console)
    assert set(told) == CHANGEABLE | set(OF_THE_MACHINE)
    assert {key for key, setting in told.items() if setting["changeable"]} == CHANGEABLE
    assert told["smtp_security"]["default"] == "starttls"
    for setting in told.values():
        assert (setting["value"], setting["set"], setting["valid"]) == (None, False, True)
        assert setting["meaning"]


def test_settings_are_set_and_unset_for_the_command_and_the_daemon_alike(console):
    told = changed(console, **MAIL, web_hook=HOOK)
    assert {key: told[key]["value"] for key in MAIL} == MAIL
    assert all(stored(console, key) == value for key, value in MAIL.items())
    told = changed(console, web_hook=None, smtp_security=None)
    assert not told["web_hook"]["set"] and told["mail_to"]["set"]
    assert stored(console, "web_hook") is None and stored(console, "smtp_security") is None
    assert changed(console)["mail_to"]["value"] == MAIL["mail_to"]


def test_secrets_go_in_and_never_come_out(console):
    for key in ("mail_password", "web_hook_secret"):
        answer = change(console, **{key: "very secret"})
        assert answer.status == 200 and b"very secret" not in answer.body
        assert b"very secret" not in console.get("/alerts").body
        told = settings(console)[key]
        assert (told["value"], told["set"], told["valid"]) == (None, True, True)
        assert console.sql("registry", "SELECT value FROM config_key WHERE key = ?", key) == \
            [("very secret",)]
        assert not changed(console, **{key: None})[key]["set"]


@pytest.mark.parametrize("key, value", VALUES)
def test_a_value_is_taken_where_the_command_takes_it(console, key, value):
    taken = console.run("recorderctl", "config", "set", "alert", key, value).returncode == 0
    console.run("recorderctl", "config", "unset", "alert", key)
    answer = change(console, **{key: value})
    assert answer.status == (200 if taken else 400)
    assert stored(console, key) == (value if taken else None)
    if not taken:
        assert (answer.code, answer.json["error"]["field"]) == ("bad_field", key)


@pytest.mark.parametrize("key, value", [
    ("mail_password", ""), ("web_hook_secret", "a\nb"), ("mail_to", 1), ("mail_to", ["a@b"]),
    ("mail_to", "a@b\0"), ("nothing", "x"), ("keep_days", "1"), ("mail_to ", "a@b"),
    *OF_THE_MACHINE.items(), *((key, None) for key in OF_THE_MACHINE)])
def test_what_is_no_value_is_refused_at_its_field_and_nothing_is_changed(console, key, value):
    answer = change(console, smtp_user="kept out", **{key: value})
    assert (answer.status, answer.json["error"]["field"]) == (400, key)
    assert stored(console, "smtp_user") is None


@pytest.mark.parametrize("body", [b"", b"[]", b"{", b"{} x", b'{"mail_to": "a", "mail_to": "b"}'])
def test_a_body_that_is_no_object_is_refused(console, body):
    assert console.call("PATCH", "/alerts", body).code == "bad_body"


def test_what_its_readers_would_not_take_is_told(console):
    console.ctl("config", "set", "--force", "alert", "smtp_server", "no server")
    told = settings(console)["smtp_server"]
    assert (told["value"], told["valid"]) == ("no server", False)


def test_what_cannot_be_answered_changes_nothing(console):
    for path in console.path.glob("backupd.db*"):
        path.rename(path.with_suffix(path.suffix + ".away"))
    answer = console.call("PATCH", "/alerts", {"mail_to": "a@b"}, complaint=b"backupd.db")
    assert (answer.status, answer.code) == (503, "state_unavailable")
    assert stored(console, "mail_to") is None and not console.events()


def test_the_log_tells_who_changed_which_settings_and_not_to_what(console):
    changed(console)
    change(console, mail_to="no address")
    changed(console, mail_to="a@b", mail_password="very secret")
    changed(console, mail_to=None)
    told = [(event["id"], event["user"], event["ip"], sorted(event["arguments"][2].split(", ")))
            for event in console.events()]
    assert told == [(ALERTS_CHANGED, "admin", ADDRESS, ["mail_to"]),
                    (ALERTS_CHANGED, "admin", ADDRESS, ["mail_password", "mail_to"])]
    [newest, _] = console.get("/log", "kind=changes").json["events"]
    assert newest["text"] == "Alerts changed: mail_to"


# --- what waits -----------------------------------------------------------------------------------


def test_alerts_that_wait_are_told_with_why(console):
    for recipient, attempts, next_attempt, why in (("a@b", 3, 1700000600, "no \x1b route"),
                                                   ("", 0, 0, "")):
        console.sql("backupd", "INSERT INTO alert (way, recipient, id, made, subject, text, "
                    "object, attempts, next_attempt, last_failure) "
                    "VALUES (?, ?, 'one', 1700000000, 'S', '', '{}', ?, ?, ?)",
                    0 if recipient else 1, recipient, attempts, next_attempt, why)
    common = {"id": "one", "subject": "S", "made": 1700000000}
    assert console.get("/alerts").json["waiting"] == [
        {**common, "way": "mail", "recipient": "a@b", "attempts": 3, "next_attempt": 1700000600,
         "last_failure": "no \x1b route"},
        {**common, "way": "web_hook", "recipient": "", "attempts": 0, "next_attempt": None,
         "last_failure": ""}]


def test_who_was_given_up_is_told_until_a_test_arrives_there(console):
    changed(console, **{**MAIL, "mail_to": "a@example.org"})
    console.sql("backupd", "INSERT INTO alert (way, recipient, id, made, subject, text, object) "
                "VALUES (0, 'a@example.org', 'x', 1700000000, 'S', 'T', '{}')")

    def given_up():
        return [(one["recipient"], one["why"]) for one in console.get("/alerts").json["given_up"]]

    with running("recording-backupd", console):
        with MailServer({"a@example.org": "550 nobody here"}):
            wait_until(given_up, "an alert that is given up")
            [(recipient, why)] = given_up()
            assert recipient == "a@example.org" and "nobody here" in why
            assert not send_test(console).json["receivers"][0]["arrived"] and given_up()
        with MailServer():
            assert send_test(console).json["receivers"][0]["arrived"]
            wait_until(lambda: not given_up(), "nobody who was given up")


def test_the_command_s_test_reaches_who_was_given_up_and_other_settings_forget_them(console):
    changed(console, web_hook=HOOK)
    for way, recipient in ((1, ""), (0, "a@example.org")):
        console.sql("backupd", "INSERT INTO alert_given_up VALUES (?, ?, 1700000000, 'no')", way,
                    recipient)
    with WebHookServer():
        assert console.run("recorderctl", "alert", "test").returncode == 0
    assert [one["way"] for one in console.get("/alerts").json["given_up"]] == ["mail"]
    with running("recording-backupd", console):
        wait_until(lambda: not console.get("/alerts").json["given_up"], "nobody")


# --- the test -------------------------------------------------------------------------------------


def send_test(console):
    return console.call("POST", "/alerts/test")


def test_a_test_tells_of_each_receiver_what_the_command_tells(console):
    changed(console, **MAIL, web_hook=HOOK)
    refusals = {"b@example.org": "550 nobody here"}
    with MailServer(refusals) as mails, WebHookServer(plain(500)), \
            running("recording-backupd", console):
        told = send_test(console).json["receivers"]
        printed = console.run("recorderctl", "alert", "test").stdout.splitlines()
    assert [[one["way"], one["recipient"], "arrived" if one["arrived"] else "failed", one["words"]]
            for one in told] == [row.split("\t") for row in printed]
    assert [one["arrived"] for one in told] == [True, False, False]
    assert "nobody here" in told[1]["words"] and "500" in told[2]["words"]
    assert len(mails.mails) == 2  # one of each


def test_without_receivers_or_a_daemon_nothing_is_sent_and_that_is_told(console):
    assert (send_test(console).status, send_test(console).code) == (503, "no_daemon")
    with running("recording-backupd", console):
        assert (send_test(console).status, send_test(console).code) == (422, "no_receiver")


class Held:
    """A web hook that answers when it is let, and the request of a console that waits for that."""

    def __init__(self, console):
        self.may_answer = threading.Event()
        self.console = console

    def answer(self, handler):
        self.may_answer.wait(SECONDS)
        plain(200)(handler)

    def start(self, hook):
        environment = self.console.environment_of("POST", "/alerts/test")
        process = self.console.start(environment)
        process.stdin.close()
        wait_until(lambda: hook.requests, "the test's request")
        return process


def test_one_test_goes_on_at_a_time_and_outlives_who_asked_for_it(console):
    changed(console, web_hook=HOOK)
    held = Held(console)
    with WebHookServer(held.answer) as hook, running("recording-backupd", console):
        process = held.start(hook)
        refused = send_test(console)
        assert (refused.status, refused.code) == (503, "busy")
        assert refused.headers["Retry-After"] == "5"
        process.send_signal(signal.SIGKILL)
        process.wait()
        assert send_test(console).code == "busy"
        held.may_answer.set()
        wait_until(lambda: send_test(console).status == 200, "the end of the first test")
        assert len(hook.requests) == 2


def test_a_daemon_that_ends_meanwhile_is_told(console):
    changed(console, web_hook=HOOK)
    held = Held(console)
    with WebHookServer(held.answer) as hook:
        with running("recording-backupd", console):
            process = held.start(hook)
        output = process.stdout.read()
        process.wait()
        held.may_answer.set()
    assert b"503" in output and b"no_daemon" in output
