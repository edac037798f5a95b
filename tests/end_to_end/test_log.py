"""The event log behind the web server: as JSON, as a download with its dated name, no other way."""
import csv
import io
import os
import subprocess

import pytest

from places import LOG_LINK
from replies import SUCCESS
from stand_alone_recorder import ROOT_URL
from state_folder import ZONE
from waiting import SECONDS

HEADER = ["Time", "Time stamp", "User", "Address", "Application", "Event", "Task"]
ADDRESS = "/cgi-bin/Ostra-RecordingbackLog.csv"


def rows(body):
    return list(csv.reader(io.StringIO(body.decode("utf-8"), newline="")))


def name_of_today():
    return subprocess.run(["date", "+Ostra-RecordingbackLog-%Y%m%d.csv"], env={"TZ": ZONE},
                          capture_output=True, text=True, check=True).stdout.strip()


def said(recorder):
    """User, words and task of each entry, newest first."""
    log = recorder.call("GET", "task/log").json
    assert list(log) == ["logs", "ret_code", "mesg"]
    assert (log["ret_code"], log["mesg"]) == (0, "Success.")
    return [(entry["user"], entry["event"], entry["task"]) for entry in log["logs"]]


@pytest.fixture
def eventful(recorder):
    """A recorder on which every setting change was made once."""
    recorder.create_successfully(taskName="Doors")
    recorder.create_successfully(taskName="=HYPERLINK(1), Tür")
    for body in ({"is_enable": False}, {"is_enable": True}):
        assert recorder.call("POST", "task/1/is_enable", body).text == SUCCESS
    assert recorder.call("DELETE", "task/1?isStop=1").text == SUCCESS
    return recorder


CHANGES = [("admin", "Task deleted", "Doors"), ("admin", "Task enabled", "Doors"),
           ("admin", "Task disabled", "Doors"), ("admin", "Task created", "=HYPERLINK(1), Tür"),
           ("admin", "Task created", "Doors")]


def test_log_of_a_new_recorder_is_empty(recorder):
    assert recorder.call("GET", "task/log").text == (
        '{ "logs": [ ], "ret_code": 0, "mesg": "Success." }')


def test_log_tells_what_happened_newest_first(eventful):
    assert said(eventful) == CHANGES
    newest = eventful.call("GET", "task/log").json["logs"][0]
    assert (newest["ip"], newest["application"], newest["eventID"]) == (
        "127.0.0.1", "Recording Backup", "62040003")
    assert newest["time"].endswith(("+01:00", "+02:00"))


def test_log_holds_the_newest_hundred(recorder):
    recorder.create_successfully(taskName="Doors")
    for number in range(120):
        body = {"is_enable": number % 2 == 1}
        assert recorder.call("POST", "task/1/is_enable", body).text == SUCCESS
    entries = said(recorder)
    assert len(entries) == 100
    assert entries[:2] == [("admin", "Task enabled", "Doors"), ("admin", "Task disabled", "Doors")]
    assert len(rows(recorder.call("GET", "task/log/file").body)) == 101


def curl(recorder, folder, address):
    """What a browser's "save as" does: the server's name for the file, in `folder`."""
    done = subprocess.run(["curl", "-sS", "-f", "-OJ", "--max-time", str(SECONDS), "--cookie",
                           "sid=" + recorder.sid, f"http://127.0.0.1:{recorder.port}{address}"],
                          cwd=folder, env={"PATH": os.environ["PATH"]}, capture_output=True,
                          text=True)
    assert done.returncode == 0, done.stderr
    return list(folder.iterdir())


def test_download_ends_as_a_file_with_the_days_name_that_holds_the_events(eventful, tmp_path):
    before = name_of_today()
    file, = curl(eventful, tmp_path, f"{ROOT_URL}/task/log/file")
    assert file.name in (before, name_of_today())
    table = rows(file.read_bytes())
    assert table[0] == HEADER
    assert [(row[2], row[5], row[6]) for row in table[1:]] == [
        (user, event, "'" + task if task.startswith("=") else task)
        for user, event, task in CHANGES]


def test_second_download_has_the_newer_events_under_the_same_name(eventful):
    before = name_of_today()
    first = eventful.call("GET", "task/log/file")
    eventful.create_successfully(taskName="Yard")
    second = eventful.call("GET", "task/log/file")
    named = {f"attachment; filename={name}" for name in (before, name_of_today())}
    assert {reply.headers["Content-Disposition"] for reply in (first, second)} <= named
    assert rows(second.body)[1][5:] == ["Task created", "Yard"]
    assert rows(second.body)[2:] == rows(first.body)[1:]


def test_exported_file_cannot_be_fetched_past_the_program(eventful):
    assert eventful.call("GET", "task/log/file").status == 200
    assert LOG_LINK.read_bytes()
    cookie = {"Cookie": "sid=" + eventful.sid}
    for address in (ADDRESS, ADDRESS + "?sid=" + eventful.sid, ADDRESS + "/", ADDRESS + "/x",
                    "/cgi-bin/./Ostra-RecordingbackLog.csv", "/cgi-bin//Ostra-RecordingbackLog.csv",
                    "/cgi-bin/%4fstra-RecordingbackLog.csv", "/share/Ostra-RecordingbackLog.csv"):
        for method in ("GET", "HEAD", "POST"):
            for headers in ({}, cookie, {**cookie, "Range": "bytes=0-"}):
                reply = eventful.request(method, address, headers=headers)
                assert reply.status in (403, 404), (method, address)
                assert b"Doors" not in reply.body


def test_download_without_a_session_is_refused_and_exports_nothing(eventful):
    reply = eventful.request("GET", f"{ROOT_URL}/task/log/file")
    assert reply.status == 401
    assert not LOG_LINK.is_symlink()


def test_log_service_that_is_down_is_reported_and_an_earlier_export_stays(eventful):
    before = eventful.call("GET", "task/log/file").body
    eventful.kill_service("recorder-logd")
    assert eventful.call("GET", "task/log").text == (
        '{ "ret_code": -1.0, "mesg": "Get task log fail." }')
    reply = eventful.call("GET", "task/log/file")
    assert (reply.status, reply.text) == (
        200, '{ "ret_code": -1.0, "mesg": "Download task log fail." }')
    assert LOG_LINK.read_bytes() == before
    # What happens meanwhile is in the log once the service is back.
    eventful.create_successfully(taskName="Yard")
    eventful.start_service("recorder-logd")
    assert said(eventful) == [("admin", "Task created", "Yard"), *CHANGES]
