"""What the console tells of tasks, runs, days, schedules and the log, over real databases."""
import csv
import io
import socket
import sqlite3
import threading
import time
from contextlib import closing
from datetime import datetime, timezone
from zoneinfo import ZoneInfo

import pytest

from console_program import ConsoleProgram
from service_process import running
from waiting import wait_until

HOSTILE = ["<script>alert(1)</script>", "it's \"quoted\"", "\u202eright to left", "\U0001f4f7",
           "é" * 5000, "a\\b/c", "</title>&amp;"]
NIGHTLY = {"scheduleType": "daily", "scheduleHour": 2, "scheduleMin": 30, "scheduleWeekly": 0,
           "scheduleEveryHours": 0}


NO_ROOM = "make room, shorten \"remoteKeepRecDays\", or choose \"overwrite\""


@pytest.fixture
def console(tmp_path):
    """With the daemon's database, which only the daemon makes."""
    made = ConsoleProgram(tmp_path / "state")
    with running("recording-backupd", made):
        pass
    return made


def add_run(console, task, number, started, **values):
    row = {"taskID": task, "number": number, "task_name": "x", "cause": 0, "started": started,
           **values}
    console.sql("backupd", f"INSERT INTO run ({', '.join(row)}) VALUES "
                f"({', '.join('?' * len(row))})", *row.values())


# --- tasks ----------------------------------------------------------------------------------------


def test_a_recorder_without_tasks_says_so(console):
    told = console.get("/tasks").json
    assert told["tasks"] == [] and told["needs_attention"]
    assert "there is no task: nothing is copied" in told["problems"]
    assert told["services"] == {"backup": False, "log": False}
    assert abs(told["time"] - time.time()) < 60
    assert (told["recorder"]["zone"], told["recorder"]["utc_offset"]) == ("UTC0", 0)


def test_a_task_has_its_settings_and_no_password(console):
    console.store_task(taskName="Doors", enable=True, status=1, serverIP="192.0.2.1", port=445,
                       username="u", password="Very secret", destPath="/s/f", scheduleHour=25)
    console.sql("config", "UPDATE task SET chIdxList = '0'")
    answer = console.get("/tasks")
    [task] = answer.json["tasks"]
    assert b"Very secret" not in answer.body and b"password" not in answer.body
    assert (task["id"], task["name"]) == ("1", "Doors")
    assert (task["enabled"], task["status"]) == (True, "new")
    assert task["settings"]["serverIP"] == "192.0.2.1" and task["settings"]["scheduleHour"] == 25
    assert [task[name] for name in ("queue_place", "progress", "next_run", "last_success",
                                    "last_attempt", "overdue_since", "problems")] \
        == [None] * 6 + [["the backup daemon has not looked at its schedule"]]


@pytest.mark.parametrize("name", HOSTILE)
def test_hostile_names_come_as_they_are(console, name):
    console.sql("config", "SELECT 1")
    console.add_tasks(1)
    console.sql("config", "UPDATE task SET taskName = ?", name)
    assert console.get("/tasks").json["tasks"][0]["name"] == name


def test_bytes_that_are_no_text_do_not_break_the_reply(console):
    console.add_tasks(1)
    console.sql("config", "UPDATE task SET taskName = CAST(x'61ff00' AS TEXT)")
    assert console.get("/tasks").json["tasks"][0]["name"] == "a\ufffd\x00"


def test_a_failed_run_is_a_problem_with_its_reason(console):
    console.add_tasks(2)
    console.sql("config", "UPDATE task SET chIdxList = '0'")
    console.sql("backupd", "INSERT INTO task_health (taskID, last_number, last_success, "
                "success_time) VALUES (1, 3, 2, 1700000000), (2, 0, 0, NULL)")
    console.sql("backupd", "INSERT INTO next_run (taskID, rule, due) "
                "VALUES (1, '', 9700000000), (2, '', 9700000000)")
    add_run(console, 1, 2, 1699990000, ended=1700000000, outcome=0)
    add_run(console, 1, 3, 1700080000, ended=1700080100, outcome=1, reason="the share is full")
    first, second = console.get("/tasks").json["tasks"]
    assert first["last_success"] == 1700000000
    assert first["last_attempt"] == {"number": 3, "started": 1700080000, "ended": 1700080100,
                                     "outcome": "failed", "reason": "the share is full",
                                     "remedy": NO_ROOM}
    assert len(first["problems"]) == 1 and "the share is full" in first["problems"][0]
    assert first["remedies"] == [NO_ROOM]
    assert second["problems"] == second["remedies"] == [] and second["last_attempt"] is None


def test_only_a_run_that_failed_has_a_remedy(console):
    console.add_tasks(1)
    for outcome, remedy in ((0, None), (1, NO_ROOM), (2, None), (3, None), (None, None)):
        console.sql("backupd", "DELETE FROM run")
        add_run(console, 1, 1, 1700080000, outcome=outcome, reason="the share is full")
        [task] = console.get("/tasks").json["tasks"]
        assert task["last_attempt"]["remedy"] == remedy


def test_an_unchanged_state_costs_nothing_on_the_line(console):
    console.add_tasks(2)
    tag = console.get("/tasks").headers["ETag"]
    again = console.get("/tasks", HTTP_IF_NONE_MATCH=tag)
    assert (again.status, again.body) == (304, b"")
    console.sql("config", "UPDATE task SET spareFlag = 1")
    written = console.get("/tasks", HTTP_IF_NONE_MATCH=tag)
    assert (written.status, written.body) == (304, b"")
    assert written.headers["ETag"].split("-")[0] == tag.split("-")[0]
    assert written.headers["ETag"] != tag
    console.sql("config", "UPDATE task SET taskName = 'other' WHERE taskID = 2")
    changed = console.get("/tasks", HTTP_IF_NONE_MATCH=tag)
    assert changed.status == 200 and changed.headers["ETag"] != tag


def test_a_revision_changes_with_its_own_tasks_settings_alone(console):
    console.add_tasks(2)

    def revisions():
        return [task["revision"] for task in console.get("/tasks").json["tasks"]]

    before = revisions()
    console.sql("config", "UPDATE task SET status = 6 WHERE taskID = 1")
    assert revisions() == before
    console.sql("config", "UPDATE task SET backupDays = 3 WHERE taskID = 1")
    changed = revisions()
    assert changed[0] != before[0] and changed[1] == before[1]
    console.sql("config", "UPDATE task SET enable = 0 WHERE taskID = 1")
    assert revisions()[0] not in (before[0], changed[0])
    disabled = revisions()
    console.sql("config", "UPDATE task SET password = 'two' WHERE taskID = 1")
    assert revisions()[0] not in (before[0], changed[0], disabled[0])
    assert revisions()[1] == before[1]


@pytest.mark.parametrize("is_read_by_another", [False, True])
def test_what_the_daemon_notes_ends_a_304(console, is_read_by_another):
    """While another program has the database open, what is written stays in its log."""
    console.add_tasks(1)
    with closing(sqlite3.connect(console.path / "backupd.db")) as other:
        if is_read_by_another:
            other.execute("SELECT count(*) FROM next_run").fetchall()
        tag = console.get("/tasks").headers["ETag"]
        console.sql("backupd",
                    "INSERT INTO next_run (taskID, rule, due) VALUES (1, '', 9700000000)")
        answer = console.get("/tasks", HTTP_IF_NONE_MATCH=tag)
    assert answer.status == 200 and answer.json["tasks"][0]["next_run"] == 9700000000


def test_a_running_task_tells_how_far_it_is(console):
    console.add_tasks(2)
    console.sql("config", "UPDATE task SET status = 4 WHERE taskID = 1")
    console.sql("config", "INSERT INTO queue (taskID, place) VALUES (2, 7)")
    console.sql("backupd", "INSERT INTO run_progress (taskID, bytes_planned, bytes_done, percent, "
                "rate, files_done, files_left, files_failed, seconds_left, message, time_ms) "
                "VALUES (1, 1000, 250, 25.1, 12.5, 3, 9, 0, NULL, 'waits', 1)")
    first, second = console.get("/tasks").json["tasks"]
    assert first["progress"] == {"percent": 25.1, "rate": 12.5, "seconds_left": None,
                                 "files_done": 3, "files_left": 9, "bytes_done": 250,
                                 "bytes_left": 750, "message": "waits"}
    assert second["queue_place"] == 0


def test_without_the_daemons_database_the_tasks_are_told_all_the_same(tmp_path):
    console = ConsoleProgram(tmp_path / "state")
    console.add_tasks(1)
    told = console.get("/tasks").json
    assert len(told["tasks"]) == 1 and any("backupd.db" in text for text in told["problems"])
    assert console.get("/task/1/runs", complaint=b"backupd.db").code == "state_unavailable"


# --- runs -----------------------------------------------------------------------------------------


def test_the_history_comes_in_pages(console):
    for number in range(1, 121):
        add_run(console, 7, number, 1700000000 + number, ended=1700000001 + number, outcome=0)
    add_run(console, 8, 1, 1700000000)
    seen, query = [], ""
    while query is not None:
        page = console.get("/task/7/runs", query).json
        seen += [run["number"] for run in page["runs"]]
        query = None if page["older"] is None else f"before={page['older']}"
    assert seen == list(range(120, 0, -1))


@pytest.mark.parametrize("task", ["9", "x", "-1", "1%20", "0x7", "7 or 1=1"])
def test_a_task_without_runs_has_an_empty_history(console, task):
    add_run(console, 7, 1, 1700000000)
    assert console.get(f"/task/{task}/runs").json == {"runs": [], "older": None}


def test_a_run_has_its_counts_failures_and_rates(console):
    add_run(console, 7, 4, 1700000000, cause=3, files_sent=3, bytes_sent=99, rate=1.5)
    console.sql("backupd", "INSERT INTO run_failure (taskID, number, place, file, reason) "
                "VALUES (7, 4, 0, ?, 'gone'), (7, 3, 0, 'other', '')", HOSTILE[0])
    console.sql("backupd", "INSERT INTO run_rate (taskID, time, rate) VALUES "
                "(7, 1699999990, 9), (7, 1700000005, 10.5), (7, 1700000010, 11), "
                "(8, 1700000005, 1)")
    run = console.get("/task/7/runs/4").json
    assert (run["cause"], run["ended"], run["outcome"]) == ("resumed", None, None)
    assert (run["sent"], run["kept"]) == ({"files": 3, "bytes": 99}, {"files": 0, "bytes": 0})
    assert run["failures"] == [{"file": HOSTILE[0], "reason": "gone"}]
    assert run["rates"] == [[1700000005, 10.5], [1700000010, 11]]
    console.sql("backupd", "UPDATE run SET ended = 1700000020, outcome = 0")
    assert console.get("/task/7/runs/4").json["rates"] == []


@pytest.mark.parametrize("number", ["5", "x", "-4", "4x", "99999999999999999999"])
def test_a_run_that_is_not_kept_is_not_found(console, number):
    add_run(console, 7, 4, 1700000000)
    assert console.get(f"/task/7/runs/{number}").status == 404


# --- days -----------------------------------------------------------------------------------------


def record(folder, day, alarm=False):
    place = folder / day / "alarm" if alarm else folder / day
    place.mkdir(parents=True, exist_ok=True)
    (place / "10-00-00.mp4").touch()


def test_a_month_has_its_recordings_and_who_copied_them(console, tmp_path):
    folder = tmp_path / "recordings"
    record(folder, "2024-03-01")
    record(folder, "2024-03-02", alarm=True)
    record(folder, "2024-04-01")
    console.add_channel(0, "Door", folder, guid="5F0C/..")
    for task, day, removed in ((1, "2024-03-01", 0), (2, "2024-03-01", 0), (1, "2024-02-29", 0),
                               (1, "2024-03-05", 0), (1, "2024-03-06", 1)):
        console.sql("backupd", "INSERT INTO copied_file (destination, path, taskID, day, size, "
                    "modified_ns, sha256, side_file, removed) "
                    "VALUES ('d', ?, ?, ?, 1, 1, '', 0, ?)", f"Door/{day}/{task}.mp4", task, day,
                    removed)
    console.sql("backupd", "INSERT INTO copied_file (destination, path, taskID, day, size, "
                "modified_ns, sha256, side_file) VALUES ('d', 'Yard/2024-03-09/1.mp4', 1, "
                "'2024-03-09', 1, 1, '', 0)")
    console.sql("backupd", "INSERT INTO camera_folder (destination, guid, folder, folded) "
                "VALUES ('d', 'other', 'Yard', 'yard'), ('d', '5F0C', 'Door', 'door')")
    console.sql("config", "UPDATE channel SET guid = '5F0C'")
    days = console.get("/channel/5F0C/days", "month=2024-03").json["days"]
    assert days == [
        {"day": "2024-03-01", "recordings": True, "alarms": False, "copied_by": ["1", "2"]},
        {"day": "2024-03-02", "recordings": False, "alarms": True, "copied_by": []},
        {"day": "2024-03-05", "recordings": False, "alarms": False, "copied_by": ["1"]}]


def test_a_folder_that_cannot_be_read_is_told(console):
    console.add_channel(0, "Door", "/tmp", guid="G")
    console.sql("config", "UPDATE channel SET recordings = '/nowhere'")
    answer = console.get("/channel/G/days", "month=2024-03")
    assert (answer.status, answer.code) == (422, "recordings_unreadable")


@pytest.mark.parametrize("month", ["", "2024", "2024-3", "2024-03-01", "../../..", "2024-03'",
                                   "abcd-ef"])
def test_a_month_that_is_none_is_refused(console, month):
    console.add_channel(0, "Door", "/tmp", guid="G")
    answer = console.get("/channel/G/days", f"month={month}")
    assert (answer.status, answer.json["error"]["field"]) == (400, "month")


def test_an_unknown_camera_is_not_found(console):
    assert console.get("/channel/nobody/days", "month=2024-03").status == 404


def test_runs_of_a_task_that_had_the_identifier_before_are_not_told(console):
    console.add_tasks(1)
    console.sql("backupd", "INSERT INTO task_health (taskID, last_number, last_success, "
                "success_time, first_run) VALUES (1, 5, 0, NULL, 5)")
    for number in (3, 4, 5):
        add_run(console, 1, number, 1700000000 + number)
    told = console.get("/task/1/runs").json
    assert [run["number"] for run in told["runs"]] == [5] and told["older"] is None
    assert console.get("/task/1/runs/5").status == 200
    assert console.get("/task/1/runs/4").status == 404


# --- schedules ------------------------------------------------------------------------------------


def preview(console, **changes):
    return console.call("POST", "/schedule/preview", {**NIGHTLY, **changes})


def test_a_preview_has_the_next_five_times(console):
    before = time.time()
    times = preview(console).json["times"]
    assert len(times) == 5 and times[0] > before
    assert {at % 86400 for at in times} == {2 * 3600 + 1800}
    assert [b - a for a, b in zip(times, times[1:])] == [86400] * 4


def test_a_preview_keeps_to_local_clocks_across_their_changes(tmp_path):
    console = ConsoleProgram(tmp_path / "state", zone="Europe/Berlin")
    times = preview(console, scheduleType="weekly", scheduleWeekly=7).json["times"]
    local = [datetime.fromtimestamp(at, timezone.utc).astimezone(ZoneInfo("Europe/Berlin"))
             for at in times]
    assert [(at.isoweekday(), at.minute) for at in local] == [(7, 30)] * 5
    assert {at.hour for at in local} <= {2, 3}  # 3 where the clocks skip 2


@pytest.mark.parametrize("zone", ["UTC0", "Europe/Berlin"])
@pytest.mark.parametrize("hours", [1, 5, 6, 24, 36, 48, 1000])
def test_a_preview_of_hours_keeps_its_distance(tmp_path, zone, hours):
    console = ConsoleProgram(tmp_path / "state", zone=zone)
    times = preview(console, scheduleType="hour", scheduleEveryHours=hours).json["times"]
    assert [b - a for a, b in zip(times, times[1:])] == [hours * 3600] * 4


def test_a_schedule_that_never_comes_due_has_no_times(console):
    assert preview(console, scheduleType="hour", scheduleEveryHours=0).json["times"] == []


@pytest.mark.parametrize("field, value", [
    ("scheduleType", "Daily"), ("scheduleType", 1), ("scheduleHour", 24), ("scheduleHour", "2"),
    ("scheduleHour", 2.5), ("scheduleHour", None), ("scheduleHour", True), ("scheduleMin", -1),
    ("scheduleWeekly", 8), ("scheduleEveryHours", 10**20)])
def test_a_schedule_that_is_none_is_refused_by_its_field(console, field, value):
    answer = preview(console, **{field: value})
    assert (answer.status, answer.json["error"]["field"]) == (400, field)


# --- the log --------------------------------------------------------------------------------------


@pytest.fixture
def log(console):
    """Of events a second apart, from 1,700,000,000 on."""
    console.add_tasks(2)
    console.sql("config", "UPDATE task SET taskName = 'Doors' WHERE taskID = 1")
    rows = [("62040001", "admin", "192.0.2.1", "Doors"),
            ("23150001", "System", "192.0.2.1", "Doors"),
            ("23150010", "System", "127.0.0.1", "Doors"),
            ("23150013", "System", "127.0.0.1", "Doors", "the share is full"),
            ("62040001", "second", "192.0.2.9", "=Yard"),
            ("23180001", "System", "198.51.100.1", "", "x"),
            ("99990001", "", "", "")]
    for at, (event, user, address, *arguments) in enumerate(rows):
        console.add_event(event, 1700000000000 + at * 1000, user, address, "Recording Backup",
                          *arguments)
    return console


def found(console, query=""):
    return [event["id"] for event in console.get("/log", query).json["events"]]


def test_the_log_has_the_newest_events_first_in_words(log):
    events = log.get("/log").json["events"]
    assert [event["id"] for event in events] == [7, 6, 5, 4, 3, 2, 1]
    assert events[3] == {"id": 4, "time": 1700000003, "user": "System", "address": "127.0.0.1",
                         "kind": "failures", "task": "Doors",
                         "text": "Run failed: the share is full"}
    assert [event["kind"] for event in events] == ["others", "sign_ins", "changes", "failures",
                                                   "runs", "requests", "changes"]


@pytest.mark.parametrize("query, ids", [
    ("task=1", [4, 3, 2, 1]), ("kind=changes", [5, 1]), ("kind=runs", [3]),
    ("task=1&kind=failures", [4]),
    ("text=SHARE", [4]), ("text=doors", [4, 3, 2, 1]), ("text=198.51", [6]), ("text=second", [5]),
    ("text=%25", []), ("from=1700000005", [7, 6]), ("to=1700000000", [1]),
    ("from=1700000002&to=1700000003", [4, 3]), ("from=1700000003&to=1700000002", []),
    ("before=3", [2, 1]), ("limit=2", [7, 6]), ("limit=0", [7]), ("text=nothing", []),
    ("to=9223372036854775807", [7, 6, 5, 4, 3, 2, 1])])
def test_the_log_is_filtered(log, query, ids):
    assert found(log, query) == ids


def test_the_log_comes_in_pages_of_what_is_filtered(log):
    page = log.get("/log", "task=1&limit=3").json
    assert [event["id"] for event in page["events"]] == [4, 3, 2]
    rest = log.get("/log", f"task=1&limit=3&before={page['older']}").json
    assert ([event["id"] for event in rest["events"]], rest["older"]) == ([1], None)


@pytest.mark.parametrize("query, field", [
    ("kind=nothing", "kind"), ("from=x", "from"), ("to=-1", "to"), ("before=1e3", "before"),
    ("limit=", "limit"), ("before=99999999999999999999", "before")])
def test_filters_that_are_none_are_refused(log, query, field):
    answer = log.get("/log", query)
    assert (answer.status, answer.json["error"]["field"]) == (400, field)


def test_a_task_that_is_gone_has_no_log_of_its_own(log):
    assert log.get("/log", "task=9").status == 404


@pytest.mark.parametrize("query", ["", "task=1", "kind=changes", "text=doors&from=1700000001"])
def test_the_file_has_exactly_what_is_filtered_and_nothing_that_runs(log, query):
    answer = log.get("/log.csv", query)
    assert answer.headers["Content-Type"] == "text/csv; charset=utf-8"
    assert answer.headers["Content-Disposition"] == 'attachment; filename="recorder-log.csv"'
    rows = list(csv.reader(io.StringIO(answer.body.decode())))
    assert rows[0] == ["Time", "Time stamp", "User", "Address", "Kind", "Task", "Event"]
    events = log.get("/log", query).json["events"]
    assert [(int(row[1]), row[2], row[6]) for row in rows[1:]] == \
        [(event["time"], event["user"], event["text"]) for event in events]
    assert "'=Yard" in [row[5] for row in rows] or "=Yard" not in answer.body.decode()


def test_a_long_log_is_read_in_parts_and_lost_nowhere(console):
    console.sql("events", "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                "WHERE i < 25000) INSERT INTO event (time_ms, event_id, channel, user, ip, "
                "arguments) SELECT i, 1645477889, -1, '', '', '[\"a\", \"' || i || '\"]' FROM n")
    page = console.get("/log", "text=%0a17%0a").json
    assert page["events"] == [] and page["older"] == 5001
    page = console.get("/log", f"text=%0a17%0a&before={page['older']}").json
    assert [event["task"] for event in page["events"]] == ["17"] and page["older"] is None
    assert console.get("/log.csv").body.count(b"\r\n") == 25001


def test_a_log_that_cannot_be_read_to_its_end_says_so_there(console):
    console.sql("events", "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                "WHERE i < 20000) INSERT INTO event (time_ms, event_id, channel, user, ip, "
                "arguments) SELECT i, 1645477889, -1, '', '', '[\"a\", \"' || i || '\"]' FROM n")
    console.sql("events", "PRAGMA journal_mode = DELETE")
    database = console.path / "events.db"
    content = bytearray(database.read_bytes())
    middle = len(content) // 8192 * 4096
    content[middle - 10 * 4096:middle + 10 * 4096] = b"\xff" * 20 * 4096
    database.write_bytes(content)
    answer = console.get("/log.csv", complaint=b"console.cgi")
    rows = list(csv.reader(io.StringIO(answer.body.decode())))
    assert answer.status == 200 and 1 < len(rows) < 20000
    assert rows[-1] == [""] * 6 + ["The log could not be read any further: this is not all of it."]


# --- the recorder ---------------------------------------------------------------------------------


def test_a_camera_whose_folder_cannot_be_read_is_none_without_recordings(console, tmp_path):
    for index, name in enumerate(("empty", "file", "gone")):
        (tmp_path / name).mkdir()
        console.add_channel(index, name, tmp_path / name)
    for name in ("file", "gone"):
        (tmp_path / name).rmdir()
    (tmp_path / "file").touch()
    told = {channel["name"]: channel for channel in console.get("/recorder").json["channels"]}
    assert [channel["oldest"] for channel in told.values()] == [None] * 3
    assert told["empty"]["unreadable"] is None
    assert "Not a directory" in told["file"]["unreadable"]
    assert "No such file" in told["gone"]["unreadable"]


def test_the_recorder_tells_of_itself(console, tmp_path):
    record(tmp_path / "recordings", "2024-03-01")
    console.add_channel(3, HOSTILE[0], tmp_path / "recordings", guid="G")
    console.sql("backupd", "INSERT INTO share_room VALUES ('//nas:445/s', 5, 10, 1700000000)")
    console.sql("backupd", "INSERT INTO problem (kind, subject, since) VALUES (1, '4', 1700000000)")
    for way in (0, 1):
        console.sql("backupd", "INSERT INTO alert (way, id, made, subject, text, object) "
                    "VALUES (?, 'one', 1, '', '', '{}')", way)
    told = console.get("/recorder").json
    assert told["channels"] == [{"index": 3, "name": HOSTILE[0], "guid": "G",
                                 "state": told["channels"][0]["state"], "oldest": "2024-03-01",
                                 "unreadable": None}]
    assert told["rooms"] == [{"destination": "//nas:445/s", "free": 5, "total": 10,
                              "time": 1700000000}]
    assert told["problems"] == [{"kind": "overdue", "subject": "4", "since": 1700000000,
                                 "detail": "", "remedy": told["problems"][0]["remedy"]}]
    assert "recorderctl run list" in told["problems"][0]["remedy"]
    assert told["alerts_waiting"] == 1


def test_services_that_answer_are_told(console):
    with running("recording-backupd", console), running("recorder-logd", console):
        wait_until(lambda: console.get("/tasks").json["services"] == {"backup": True, "log": True},
                   "both services")


def test_a_service_that_comes_ends_a_304(console):
    console.add_tasks(1)
    tag = console.get("/tasks").headers["ETag"]
    answers = []

    def has_another():
        answers.append(console.get("/tasks", HTTP_IF_NONE_MATCH=tag))
        return answers[-1].status == 200

    with running("recorder-logd", console):
        wait_until(has_another, "the service, which has a second to answer")
    assert answers[-1].json["services"] == {"backup": False, "log": True}


def log_service(console):
    return console.get("/tasks").json["services"]["log"]


def test_a_socket_behind_which_nobody_answers_is_no_log_service(console):
    with socket.create_server(("127.0.0.1", 10150)) as waiting:
        assert not log_service(console)
        connection, _ = waiting.accept()
        with connection:
            assert connection.recv(100).startswith(b"GET /logs/logs?max_results=1 ")


@pytest.mark.parametrize("answer", [b"HTTP/1.0 500 No\r\n\r\n", b"HTTP/1.0 2", b"hello", b""])
def test_a_log_service_that_cannot_tell_its_events_does_not_work(console, answer):
    with socket.create_server(("127.0.0.1", 10150)) as waiting:
        def say():
            connection, _ = waiting.accept()
            with connection:
                connection.recv(1000)
                connection.sendall(answer)

        other = threading.Thread(target=say)
        other.start()
        assert not log_service(console)
        other.join()


# --- who may ask ----------------------------------------------------------------------------------


@pytest.mark.parametrize("method, path", [
    ("GET", "/tasks"), ("GET", "/task/1/runs"), ("GET", "/task/1/runs/1"), ("GET", "/recorder"),
    ("GET", "/channel/x/days"), ("POST", "/schedule/preview"), ("GET", "/log"), ("GET", "/log.csv"),
    ("POST", "/shares"), ("GET", "/alerts"), ("PATCH", "/alerts"), ("POST", "/alerts/test"),
    ("GET", "/session")])
def test_every_route_is_for_administrators_alone(console, method, path):
    assert console.call(method, path, sid=None).code == "no_session"
    console.add_user("viewer", level=10)
    assert console.call(method, path, sid=console.open_session("viewer")).code == \
        "not_administrator"
