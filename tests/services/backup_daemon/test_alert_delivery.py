"""How alerts get to people and programs, whatever their servers do: over a real mail server and a
real HTTP server."""
import asyncio
import email.utils
import hashlib
import hmac
import json
import os
import random
import re
import sqlite3
import time
from contextlib import closing, suppress
from pathlib import Path

import pytest

from mail_server import MAIL_PORT, Certificate, MailServer, scripted_mail_server
from metrics import scrape
from processes import parent_of, processes
from recorder_clock import clock_second, local
from service_process import running, start_service
from state_folder import StateFolder
from waiting import wait_until
from web_hook_server import HOOK_PORT, WebHookServer, plain

TO = "admin@example.org"
FROM = "nvr@example.org"
HOOK = f"http://127.0.0.1:{HOOK_PORT}/hook?of=us"
MAIL, WEB_HOOK = 0, 1  # as stored
DAY = 86400
KILLS = 25


class Recorder(StateFolder):
    """A state folder, and what its daemon has to send."""

    def set(self, **settings):
        for key, value in settings.items():
            self.ctl("config", "set", "alert", key, str(value))

    def mail_by_server(self, **settings):
        self.set(mail_to=TO, mail_from=FROM, smtp_server=f"127.0.0.1:{MAIL_PORT}",
                 smtp_security="none")
        self.set(**settings)

    def secret(self, way, text):
        self.ctl("alert", "password", way, given=text)

    def test(self, *words):
        """recorderctl alert test: its exit status, and each way's row."""
        done = self.run("recorderctl", "alert", "test", *words)
        return done.returncode, [line.split("\t") for line in done.stdout.splitlines()]

    def arrives(self, *words):
        status, rows = self.test(*words)
        assert status == 0, rows
        return rows

    def failure(self, *words):
        """Why the one way that is tried does not work."""
        status, ((_, _, result, why),) = self.test(*words)
        assert (status, result) == (1, "failed")
        return why

    def database(self, sql, *values):
        with closing(sqlite3.connect(self.path / "backupd.db", timeout=60)) as database:
            with database:
                return database.execute(sql, values).fetchall()

    def put(self, name, ways=(MAIL,), made=None, recipient=TO):
        self.database("BEGIN IMMEDIATE")
        for way in ways:
            self.database(
                "INSERT INTO alert (way, recipient, id, made, subject, text, object) "
                "VALUES (?,?,?,?,?,?,?)", way, recipient if way == MAIL else "", name,
                made or int(time.time()), "Task failed", "It failed.\n",
                json.dumps({"id": name}))

    def waiting(self):
        return self.database("SELECT id, way, attempts, last_failure FROM alert ORDER BY number")

    def wait_for_attempt(self, number=1):
        """Gives the reason of the only alert."""
        wait_until(lambda: self.waiting()[0][2] >= number, "a failed attempt")
        return self.waiting()[0][3]

    def try_now(self):
        self.database("UPDATE alert SET next_attempt = 0")

    def wait_until_sent(self):
        wait_until(lambda: not self.waiting(), "the end of the alerts")


@pytest.fixture(name="recorder")
def fresh_recorder(tmp_path):
    return Recorder(tmp_path / "state").init()


@pytest.fixture(name="certificate")
def own_certificate(tmp_path):
    return Certificate(tmp_path / "certificate")


# --- the test alert ------------------------------------------------------------------------------


def test_a_test_alert_tells_for_each_receiver_that_it_has_arrived(recorder):
    recorder.mail_by_server(mail_to=TO + ", second@example.org", web_hook=HOOK)
    with MailServer() as mails, WebHookServer() as hook:
        assert recorder.arrives() == [
            ["mail", TO, "arrived", ""], ["mail", "second@example.org", "arrived", ""],
            ["web_hook", "", "arrived", ""]]
        assert recorder.arrives("web_hook") == [["web_hook", "", "arrived", ""]]
    assert (len(mails.mails), len(hook.requests)) == (2, 2)


class BusyMailServer(MailServer):
    """Takes its time for each mail, and counts how many it gets at once."""

    now = most = 0

    async def handle_DATA(self, *mail):
        self.now += 1
        self.most = max(self.most, self.now)
        await asyncio.sleep(0.2)
        self.now -= 1
        return await super().handle_DATA(*mail)


def test_a_test_alert_goes_out_one_mail_at_a_time_as_alerts_do(recorder):
    recorder.mail_by_server(mail_to=", ".join(f"a{number}@example.org" for number in range(5)))
    with BusyMailServer() as server:
        recorder.arrives()
    assert (len(server.mails), server.most) == (5, 1)


def test_a_test_alert_without_any_way_is_refused(recorder):
    assert recorder.refusal("recorderctl", "alert", "test") == (
        "alerts go nowhere: neither alert mail_to nor alert web_hook is set")
    assert recorder.failure("web_hook") == "setting alert web_hook is not set"
    assert recorder.failure("mail") == "setting alert mail_to names nobody"


def test_one_way_that_fails_makes_the_test_fail_and_the_other_arrives(recorder):
    recorder.mail_by_server(web_hook=HOOK)
    with WebHookServer() as hook:
        done = recorder.run("recorderctl", "alert", "test")
    rows = [line.split("\t") for line in done.stdout.splitlines()]
    assert done.returncode == 1
    assert done.stderr == "recorderctl: the test alert has not arrived everywhere\n"
    assert rows[0][:3] == ["mail", TO, "failed"]
    assert rows[0][3].startswith("Failed to connect to ")
    assert rows[1] == ["web_hook", "", "arrived", ""] and len(hook.requests) == 1


# --- mail ----------------------------------------------------------------------------------------


def test_a_mail_says_who_sends_it_to_whom_and_that_a_program_did(recorder):
    recorder.mail_by_server()
    with MailServer() as server, running("recording-backupd", recorder):
        recorder.database(
            "INSERT INTO alert (way, recipient, id, made, subject, text, object) "
            "VALUES (0, ?, 'a-1', 1700000000, ?, ?, '{}')", TO, "Tür\r\nBcc: c@d",
            "Grüße\n.\nlast\n")
        recorder.wait_until_sent()
    mail, = server.mails
    assert (mail.envelope_from, mail.envelope_to) == (FROM, [TO])
    assert (mail["From"], mail["To"]) == (FROM, TO)
    assert mail["Subject"] == "Tür\\r\\nBcc: c@d" and mail["Bcc"] is None
    assert email.utils.parsedate_to_datetime(mail["Date"]).timestamp() == 1700000000
    assert mail["Message-ID"] == "<a-1@example.org>"
    assert mail["Auto-Submitted"] == "auto-generated"
    assert mail.get_content_type() == "text/plain"
    assert mail.get_content().replace("\r\n", "\n") == "Grüße\n.\nlast\n"


def test_password_goes_to_the_server_once_the_connection_is_encrypted(recorder, certificate):
    recorder.mail_by_server(smtp_security="starttls", smtp_user="nvr", ca_file=certificate.file)
    recorder.secret("mail", "Tür und Tor")
    with MailServer(users={"nvr": "Tür und Tor"}, require_starttls=True,
                    tls_context=certificate.context()) as server:
        recorder.arrives()
    assert server.logins == [("nvr", "Tür und Tor", True)]
    assert server.mails[0].with_tls


def test_password_is_read_from_a_file_that_nobody_else_can_read(recorder, certificate, tmp_path):
    file = tmp_path / "password"
    file.write_text("of the file\nand more\n")
    file.chmod(0o600)
    recorder.mail_by_server(smtp_security="tls", smtp_user="nvr", ca_file=certificate.file,
                            smtp_password_file=file)
    recorder.secret("mail", "of the store")
    with MailServer(users={"nvr": "of the file"}, auth_require_tls=False,
                    ssl_context=certificate.context()) as server:
        recorder.arrives()
        assert [login[:2] for login in server.logins] == [("nvr", "of the file")]
        file.chmod(0o640)
        os.chown(file, 65534, -1)
        assert recorder.failure() == (
            f"the password file {file} can be read or written by others: chmod 600")
        file.unlink()
        assert recorder.failure() == (
            f"the password file {file} cannot be read: No such file or directory")
    assert len(server.mails) == 1


def test_a_wrong_password_is_told_in_the_servers_words(recorder, certificate):
    recorder.mail_by_server(smtp_security="starttls", smtp_user="nvr", ca_file=certificate.file)
    recorder.secret("mail", "wrong")
    with MailServer(users={"nvr": "right"}, tls_context=certificate.context()) as server:
        why = recorder.failure()
    assert "the mail server says: 535 " in why and "wrong" not in why
    assert not server.mails


def test_password_never_goes_to_another_machine_in_the_clear(recorder):
    recorder.mail_by_server(smtp_user="nvr", smtp_server="127.0.0.1.example.org")
    recorder.secret("mail", "secret")
    assert recorder.failure().startswith(
        "the password would go to another machine in the clear: ")


def test_password_may_go_to_this_machine_in_the_clear(recorder):
    recorder.mail_by_server(smtp_user="nvr")
    recorder.secret("mail", "secret")
    with MailServer(users={"nvr": "secret"}, auth_require_tls=False) as server:
        recorder.arrives()
    assert server.logins == [("nvr", "secret", False)]


def test_nothing_is_sent_to_a_server_that_does_not_offer_starttls(recorder):
    recorder.mail_by_server(smtp_security="starttls", smtp_user="nvr")
    recorder.secret("mail", "secret")
    with scripted_mail_server(["220 here", "250-here\r\n250 AUTH PLAIN LOGIN"]) as got:
        assert recorder.failure() != ""
    assert [line.split()[0] for line in got if not line.startswith("QUIT")] == ["EHLO"]


@pytest.mark.parametrize("security", ["starttls", "tls"])
@pytest.mark.parametrize("names, trusted", [("IP:127.0.0.1", False), ("DNS:other.example", True)])
def test_nothing_is_sent_to_a_mail_server_that_nobody_vouches_for(recorder, tmp_path, security,
                                                                  names, trusted):
    certificate = Certificate(tmp_path / "theirs", names)
    recorder.mail_by_server(smtp_security=security, smtp_user="nvr",
                            ca_file=certificate.file if trusted else "")
    recorder.secret("mail", "secret")
    key = "ssl_context" if security == "tls" else "tls_context"
    with MailServer(users={"nvr": "secret"}, **{key: certificate.context()}) as server:
        assert re.search("certificate|SSL", recorder.failure())
    assert not server.mails and not server.logins


GONE, LATER = "gone@example.org", "later@example.org"
REFUSALS = {GONE: "550 5.1.1 no such user", LATER: "450 4.7.1 come back later"}


@pytest.mark.parametrize("order", [(GONE, LATER, TO), (TO, LATER, GONE), (LATER, TO, GONE)])
def test_a_recipient_who_is_refused_keeps_no_other_from_the_mail(recorder, order):
    recorder.mail_by_server(mail_to=", ".join(order))
    with MailServer(REFUSALS) as server:
        status, rows = recorder.test("mail")
    told = {recipient: (result, why) for _, recipient, result, why in rows}
    assert status == 1 and tuple(row[1] for row in rows) == order
    assert told[TO] == ("arrived", "")
    for address, refusal in REFUSALS.items():
        assert told[address][0] == "failed" and told[address][1].endswith(refusal)
    assert [(mail.envelope_to, mail["To"]) for mail in server.mails] == [([TO], TO)]


def test_who_is_refused_for_now_gets_the_mail_later_and_who_is_for_good_is_given_up(recorder,
                                                                                  tmp_path):
    recorder.mail_by_server()
    with open(tmp_path / "errors", "w", encoding="utf-8") as errors, MailServer(
            REFUSALS) as server, running("recording-backupd", recorder, stderr=errors):
        for address in (GONE, LATER, TO):
            recorder.put("a-1", recipient=address)
        wait_until(lambda: [row[1:3] for row in recorder.waiting()] == [(MAIL, 1)], "one to wait")
        assert recorder.waiting()[0][3].endswith(REFUSALS[LATER])
        del server.refusals[LATER]
        recorder.try_now()
        recorder.wait_until_sent()
        assert scrape().get("given_up_alerts_total") == 1
    assert [mail.envelope_to for mail in server.mails] == [[TO], [LATER]]
    assert set(server.ids) == {"<a-1@example.org>"}
    assert f"(a-1) by mail to {GONE} is given up at once: " in (tmp_path / "errors").read_text()


def test_a_mail_whose_only_recipient_is_refused_has_not_arrived(recorder):
    recorder.mail_by_server()
    with MailServer({TO: "550 5.1.1 no such user"}) as server:
        assert recorder.failure().endswith("; the mail server says: 550 5.1.1 no such user")
    assert not server.mails


@pytest.mark.parametrize("answers", [
    ["421 too busy"], ["554 go away"], ["220 here", "250 here", "552 too much"],
    ["220 here", "250 here", "250 ok", "250 ok", "451 not now"],
    ["220 here", "250 here", "250 ok", "250 ok", "354 go on", "554 no spam"]])
def test_what_a_mail_server_refuses_with_is_told(recorder, answers):
    recorder.mail_by_server()
    with scripted_mail_server(answers):
        assert recorder.failure().endswith("; the mail server says: " + answers[-1])


# --- a local sendmail ----------------------------------------------------------------------------

SENDMAIL = """#!/bin/sh
printf '%s\\n' "$@" >"{folder}/arguments"
env >"{folder}/environment"
cat >"{folder}/mail"
ls /proc/self/fd >"{folder}/descriptors"
echo 'the queue is full' >&2
exit {status}
"""


def local_sendmail(folder, status):
    path = folder / "sendmail"
    path.write_text(SENDMAIL.format(folder=folder, status=status))
    path.chmod(0o755)
    return path


def test_a_local_sendmail_gets_the_mail_when_no_server_is_named(recorder, tmp_path):
    recorder.set(mail_to=TO, mail_from=FROM, sendmail=local_sendmail(tmp_path, 0))
    recorder.arrives()
    assert (tmp_path / "arguments").read_text().split("\n")[:-1] == ["-i", "-f", FROM, "--", TO]
    mail = (tmp_path / "mail").read_bytes()
    assert b"\r" not in mail and f"To: {TO}\n".encode() in mail
    assert {line.split("=")[0] for line in (tmp_path / "environment").read_text().splitlines()} <= {
        "PATH", "LC_ALL", "PWD", "SHLVL", "_"}
    # The folder that ls itself reads is one more.
    assert (tmp_path / "descriptors").read_text().split() == ["0", "1", "2", "3"]


def test_a_sendmail_that_fails_is_told_with_its_words(recorder, tmp_path):
    program = local_sendmail(tmp_path, 75)
    recorder.set(mail_to=TO, sendmail=program)
    assert recorder.failure() == f"{program} ended with status 75: the queue is full"
    program.unlink()
    assert recorder.failure() == (
        f"{program} ended with status 127: No such file or directory")


def test_each_recipient_is_a_sendmail_of_their_own_and_one_who_is_unknown_is_given_up(recorder,
                                                                                   tmp_path):
    program = local_sendmail(tmp_path, "$([ $5 = gone ] && echo 67 || echo 0)")
    recorder.set(mail_to="gone, root", sendmail=program)
    status, rows = recorder.test()
    assert status == 1 and [row[1:3] for row in rows] == [["gone", "failed"], ["root", "arrived"]]
    with running("recording-backupd", recorder):
        recorder.put("a-1", recipient="gone")
        recorder.wait_until_sent()


def test_a_sendmail_that_never_stops_talking_is_ended(recorder, tmp_path):
    program = tmp_path / "sendmail"
    program.write_text("#!/bin/sh\necho busy\nexec cat /dev/zero\n")
    program.chmod(0o755)
    recorder.set(mail_to=TO, sendmail=program)
    assert recorder.failure() == f"{program} was ended by signal 25: busy"  # SIGXFSZ


# --- web hooks -----------------------------------------------------------------------------------


def test_a_web_hook_gets_the_object_with_its_id_and_a_signature(recorder):
    recorder.set(web_hook=HOOK)
    recorder.secret("web_hook", "of ours")
    recorder.environment["http_proxy"] = "http://127.0.0.1:1"
    with WebHookServer() as hook:
        recorder.arrives()
    (path, headers, body), = hook.requests
    assert path == "/hook?of=us"
    assert headers["Content-Type"] == "application/json"
    assert headers["User-Agent"].startswith("recorder/")
    told = json.loads(body)
    assert (told["id"], told["event"]) == (headers["X-Recorder-Alert"], "test")
    assert headers["X-Recorder-Signature"] == "sha256=" + hmac.new(
        b"of ours", body, hashlib.sha256).hexdigest()


def test_a_web_hook_without_a_secret_gets_no_signature(recorder):
    recorder.set(web_hook=HOOK)
    with WebHookServer() as hook:
        recorder.arrives()
    assert hook.requests[0][1]["X-Recorder-Signature"] is None


@pytest.mark.parametrize("status", [301, 302, 307, 308])
def test_a_web_hook_is_not_followed_to_another_server(recorder, status):
    recorder.set(web_hook=HOOK)
    recorder.secret("web_hook", "of ours")
    other = f"http://127.0.0.1:{HOOK_PORT + 1}/"
    with WebHookServer(plain(status, headers=[("Location", other)])) as hook, WebHookServer(
            port=HOOK_PORT + 1) as elsewhere:
        assert recorder.failure() == (
            f"the web hook answers {status}, a redirection, which is not followed")
    assert (len(hook.requests), len(elsewhere.requests)) == (1, 0)


def test_a_web_hook_that_refuses_is_told_with_the_beginning_of_its_words(recorder):
    recorder.set(web_hook=HOOK)
    with WebHookServer(plain(500, b"out of \x1b[2J order\n" + b"x" * 1_000_000)):
        why = recorder.failure()
    assert why.startswith("the web hook answers 500: out of \\x1B[2J order\\n") and len(why) < 300


def test_a_body_without_end_keeps_no_alert_from_having_arrived(recorder):
    ended = []

    def drip(handler):
        handler.send_response(200)
        handler.end_headers()
        try:
            while not ended:
                handler.wfile.write(b"x")
                time.sleep(0.05)
        except OSError:
            pass

    recorder.set(web_hook=HOOK)
    with WebHookServer(drip) as hook:
        recorder.arrives()
        ended.append(True)
    assert len(hook.requests) == 1


def test_a_web_hook_over_tls_is_verified(recorder, certificate, tmp_path):
    recorder.set(web_hook=f"https://127.0.0.1:{HOOK_PORT}/")
    with WebHookServer(certificate=certificate) as hook:
        assert re.search("certificate|SSL", recorder.failure())
        recorder.set(ca_file=Certificate(tmp_path / "other").file)
        assert re.search("certificate|SSL", recorder.failure())
        assert not hook.requests
        recorder.set(ca_file=certificate.file)
        recorder.arrives()
        assert len(hook.requests) == 1


# --- what waits ----------------------------------------------------------------------------------


def test_an_alert_waits_for_a_server_that_is_down_and_arrives_once(recorder):
    recorder.mail_by_server(web_hook=HOOK)
    with WebHookServer() as hook, running("recording-backupd", recorder):
        before = clock_second()
        recorder.put("a-1", [MAIL, WEB_HOOK])
        wait_until(lambda: len(recorder.waiting()) == 1, "the web hook")
        assert recorder.wait_for_attempt().startswith("Failed to connect to ")
        (next_attempt,), = recorder.database("SELECT next_attempt FROM alert")
        assert before + 60 <= next_attempt <= time.time() + 60
        with MailServer() as server:
            recorder.try_now()
            recorder.wait_until_sent()
    assert server.ids == ["<a-1@example.org>"]
    assert hook.ids == ["a-1"]


def test_alerts_that_wait_outlive_the_daemon(recorder):
    recorder.mail_by_server()
    with running("recording-backupd", recorder):
        recorder.put("a-1")
        recorder.wait_for_attempt()
        recorder.put("a-2")
    with MailServer() as server:
        recorder.try_now()
        with running("recording-backupd", recorder):
            recorder.wait_until_sent()
    assert server.ids == ["<a-1@example.org>", "<a-2@example.org>"]


def test_an_alert_whose_way_is_not_set_any_more_waits_until_it_is_again(recorder):
    with running("recording-backupd", recorder), MailServer() as server:
        recorder.put("a-1")
        assert recorder.wait_for_attempt() == "setting alert mail_to names nobody"
        recorder.mail_by_server()
        recorder.try_now()
        recorder.wait_until_sent()
    assert server.ids == ["<a-1@example.org>"]


def test_an_alert_is_given_up_by_its_attempts_and_not_by_its_age(recorder, tmp_path):
    recorder.mail_by_server()
    with open(tmp_path / "errors", "w", encoding="utf-8") as errors:
        with running("recording-backupd", recorder, stderr=errors):
            recorder.put("a-1", made=int(time.time()) - 30 * DAY)
            recorder.wait_for_attempt()
            recorder.database("UPDATE alert SET attempts = 77, next_attempt = 0")
            recorder.wait_until_sent()
    assert f'alert "Task failed" (a-1) by mail to {TO} is given up after 78 attempts: ' in (
        tmp_path / "errors").read_text()


def test_what_waits_is_listed_with_its_attempts_and_why_it_has_not_arrived(recorder):
    now = clock_second()
    recorder.mail_by_server()
    assert "the backup daemon makes it when it starts" in recorder.refusal(
        "recorderctl", "alert", "list")
    with running("recording-backupd", recorder):
        assert recorder.ctl("alert", "list") == ""
        recorder.put("a-1", made=now)
        recorder.wait_for_attempt()
    recorder.put("a-2", [WEB_HOOK], made=now)
    for row in ((0, "2", 1700000000, 1700000060, "3 of 9\nfiles"),
                (2, "//nas", 1600000000, None, "")):
        recorder.database("INSERT INTO problem (kind, subject, since, told, detail) "
                          "VALUES (?, ?, ?, ?, ?)", *row)
    share, run, tried, fresh = recorder.ctl_json("alert", "list")
    assert share == {"what": "problem", "kind": "share_nearly_full", "subject": "//nas",
                     "since": 1600000000, "detail": ""}
    assert run == {"what": "problem", "kind": "run_failed", "subject": "2", "since": 1700000000,
                   "told": 1700000060, "detail": "3 of 9\nfiles"}
    assert tried.pop("next_attempt") >= now + 60
    assert tried.pop("last_failure").startswith("Failed to connect to ")
    assert tried == {"what": "alert", "way": "mail", "recipient": TO, "id": "a-1", "made": now,
                     "attempts": 1, "subject": "Task failed"}
    assert fresh == {"what": "alert", "way": "web_hook", "recipient": "", "id": "a-2", "made": now,
                     "attempts": 0, "next_attempt": 0, "subject": "Task failed",
                     "last_failure": ""}
    made = "made " + local(now, "%Y-%m-%d %H:%M:%S %z")
    rows = [line.split("\t") for line in recorder.ctl("alert", "list").splitlines()]
    assert rows[0] == ["problem", "share_nearly_full", "//nas",
                       "since 2020-09-13 14:26:40 +0200", "not told", ""]
    assert rows[1] == ["problem", "run_failed", "2", "since 2023-11-14 23:13:20 +0100",
                       "told 2023-11-14 23:14:20 +0100", "3 of 9\\nfiles"]
    assert rows[2][:6] == ["alert", "mail", TO, "a-1", made, "1 attempts"]
    assert rows[3][1:] == ["web_hook", "", "a-2", made, "0 attempts", "next now", "Task failed",
                           ""]


def status_of(pid):
    """None of a process that has ended."""
    try:
        return Path(f"/proc/{pid}/status").read_text()
    except OSError:
        return ""


def senders(daemon):
    """Processes of the daemon's that have given up the rest and send."""
    return [pid for pid, _ in processes()
            if parent_of(pid) == daemon.pid and "NoNewPrivs:\t1" in status_of(pid)]


def open_files(process):
    found = set()
    for number in Path(f"/proc/{process}/fd").iterdir():
        with suppress(FileNotFoundError):  # closed meanwhile
            if int(number.name) > 2:
                found.add(os.readlink(number))
    return {name for name in found if name.startswith("/")}


def test_a_mail_server_that_hangs_delays_nobody_and_its_process_can_do_nothing_else(recorder):
    recorder.mail_by_server(web_hook=HOOK)
    with scripted_mail_server([]), WebHookServer() as hook, running(
            "recording-backupd", recorder) as daemon:
        recorder.put("a-1")
        wait_until(lambda: senders(daemon), "the sending process")
        sender, = senders(daemon)
        for which in ("CapInh", "CapPrm", "CapEff", "CapAmb"):
            assert f"{which}:\t{0:016x}\n" in status_of(sender)
        limits = Path(f"/proc/{sender}/limits")
        wait_until(lambda: re.search("Max core file size +0 +0 ", limits.read_text()), "no dumps")
        # Its libraries read their settings first.
        wait_until(lambda: not open_files(sender), "none of the daemon's files")
        for name in ("a-2", "a-3"):
            recorder.put(name, [WEB_HOOK])
        wait_until(lambda: hook.ids == ["a-2", "a-3"], "the web hook")
        assert sender in senders(daemon)
        assert re.search("[Tt]ime", recorder.wait_for_attempt())


def test_a_mail_server_that_hangs_in_the_middle_of_a_mail_is_left(recorder):
    recorder.mail_by_server()
    with scripted_mail_server(["220 here", "250 here", "250 ok", "250 ok", "354 go on"]) as got:
        assert re.search("[Tt]ime", recorder.failure())
    assert "Auto-Submitted: auto-generated" in got


def test_a_mail_has_arrived_whatever_becomes_of_the_good_bye(recorder):
    recorder.mail_by_server()
    taken = ["220 here", "250 here", "250 ok", "250 ok", "354 go on", "250 taken"]
    with scripted_mail_server(taken) as got, running("recording-backupd", recorder):
        recorder.put("a-1")
        recorder.wait_until_sent()
        recorder.put("a-2")
        recorder.wait_until_sent()
    assert [line for line in got if line.startswith("Message-ID")] == [
        "Message-ID: <a-1@example.org>", "Message-ID: <a-2@example.org>"]


@pytest.mark.parametrize("way", [MAIL, WEB_HOOK])
def test_alerts_arrive_though_the_daemon_is_killed_again_and_again(recorder, way):
    seed = int(os.environ.get("LONG_RUN_SEED", time.time_ns() % 2**32))
    print("LONG_RUN_SEED =", seed)
    chance = random.Random(seed)
    recorder.mail_by_server(web_hook=HOOK)
    names = [f"a-{number}" for number in range(KILLS)]
    with MailServer() as server, WebHookServer() as hook:
        for name in names:
            daemon = start_service("recording-backupd", recorder)
            recorder.put(name, [way])
            time.sleep(chance.uniform(0.8, 1.2))  # around the first look
            daemon.kill()
            daemon.communicate()
            recorder.try_now()
        with running("recording-backupd", recorder):
            recorder.wait_until_sent()
    arrived = server.ids if way == MAIL else hook.ids
    wanted = [f"<{name}@example.org>" if way == MAIL else name for name in names]
    assert set(arrived) == set(wanted)
