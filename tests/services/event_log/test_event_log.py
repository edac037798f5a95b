"""recorder-logd on its real port: JSON and CSV, filters, refusals, writers at work meanwhile."""
import csv
import io
import sqlite3
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import closing

import pytest

from loopback import query, request, request_json
from service_process import running
from state_folder import StateFolder
from waiting import wait_until

PORT = 10150
LOGS = "/logs/logs"
FILE = "/logs/logs/file"
APPLICATION = "Recording Backup"
MARCH = 1709297110000  # 2024-03-01 13:45:10 +01:00
HEADER = ["Time", "Time stamp", "User", "Address", "Application", "Event", "Task"]


@pytest.fixture
def state(tmp_path):
    return StateFolder(tmp_path / "state").init()


@pytest.fixture
def logd(state):
    state.ctl("config", "set", "log", "keep_days", "36500")  # the events of March 2024, too
    with running("recorder-logd", state) as process:
        yield process


def logs(**parameters):
    status, reply = request_json(PORT, "GET", LOGS, **parameters)
    assert (status, reply["code"], reply["mesg"]) == (200, 0, "Success.")
    assert reply["responseItems"] == len(reply["logs"])
    return reply


def csv_rows(**parameters):
    reply = request(PORT, "GET", query(FILE, **parameters))
    assert reply.status == 200 and reply.headers.get_content_type() == "text/csv"
    text = reply.body.decode("utf-8")
    assert text.endswith("\r\n")
    return list(csv.reader(io.StringIO(text, newline="")))


def test_empty_log(logd):
    assert logs()["totalItems"] == 0
    assert csv_rows() == [HEADER]


def test_entry_tells_who_did_what_to_which_task_and_when(state, logd):
    state.add_event("62040001", MARCH, "admin", "192.168.1.20", APPLICATION, "Doors")
    assert logs()["logs"] == [{
        "id": 1, "time": "2024-03-01T13:45:10+01:00", "timeStamp": 1709297110, "user": "admin",
        "ip": "192.168.1.20", "application": APPLICATION, "event": "Task created", "task": "Doors",
        "eventID": "62040001"}]
    assert csv_rows() == [HEADER, ["2024-03-01T13:45:10+01:00", "1709297110", "admin",
                                   "192.168.1.20", APPLICATION, "Task created", "Doors"]]


def test_newest_come_first_and_the_limit_cuts_the_oldest(state, logd):
    for number in range(5):
        state.add_event("23150001", MARCH + number, "System", "", APPLICATION, f"t{number}")
    reply = logs(max_results=2)
    assert [entry["task"] for entry in reply["logs"]] == ["t4", "t3"]
    assert (reply["responseItems"], reply["totalItems"]) == (2, 5)
    assert [row[-1] for row in csv_rows(max_results=3)[1:]] == ["t4", "t3", "t2"]


def test_sub_types_filter(state, logd):
    for event_id in ("62040001", "23150003", "23170001", "11110001"):
        state.add_event(event_id, MARCH, "u", "", APPLICATION, event_id, "old")
    reply = logs(sub_type="8981,8983,25092")
    assert [entry["task"] for entry in reply["logs"]] == ["23170001", "23150003", "62040001"]
    assert reply["totalItems"] == 3
    rows = csv_rows(sub_type="8981")[1:]
    assert [row[-2] for row in rows] == ["Backup forced: 23150003 replaced old"]
    assert logs()["totalItems"] == 4
    assert logs(sub_type="1")["logs"] == []


def test_hundred_entries_unless_told_otherwise(state, logd):
    for number in range(101):
        state.add_event("62040002", MARCH, "u", "", APPLICATION, str(number))
    reply = logs()
    assert (reply["responseItems"], reply["totalItems"]) == (100, 101)
    assert logs(max_results=10000)["responseItems"] == 101


def test_hostile_names_stay_text(state, logd):
    name = '=HYPERLINK("http://x"),\r\n"</script>'
    state.add_event("62040001", MARCH, "@user", "", APPLICATION, name)
    assert logs()["logs"][0]["task"] == name
    row = csv_rows()[1]
    assert row[-1] == "'" + name and row[2] == "'@user"


def test_bytes_that_are_no_utf8_are_replaced(state, logd):
    state.add_event("62040001", MARCH, b"us\xffer", "", APPLICATION, b"T\xc3\xbcr \xe2\x82")
    assert logs()["logs"][0]["user"] == "us\ufffder"
    assert logs()["logs"][0]["task"] == "Tür \ufffd\ufffd"
    assert csv_rows()[1][-1] == "Tür \ufffd\ufffd"


@pytest.mark.parametrize("path", [LOGS, FILE])
@pytest.mark.parametrize("parameters", [{"sub_type": ""}, {"sub_type": "x"}, {"sub_type": "1,"},
                                        {"max_results": "0"}, {"max_results": "10001"},
                                        {"max_results": "1e3"}])
def test_bad_parameters_are_refused(logd, path, parameters):
    status, reply = request_json(PORT, "GET", path, **parameters)
    assert status == 400 and reply["code"] == 400 and reply["mesg"].endswith(".")


def test_wrong_paths_and_methods_are_refused(logd):
    assert request_json(PORT, "GET", "/logs")[0] == 404
    assert request_json(PORT, "DELETE", LOGS)[0] == 405


def test_log_without_a_database_is_empty(tmp_path):
    with running("recorder-logd", StateFolder(tmp_path)):
        assert logs()["logs"] == []
        assert csv_rows() == [HEADER]
    assert list(tmp_path.iterdir()) == []


def test_events_written_meanwhile_are_all_served(state, logd):
    def write(number):
        state.add_event("62040001", MARCH + number, "u", "", APPLICATION, str(number))

    with ThreadPoolExecutor(4) as pool:
        written = pool.map(write, range(40))
        seen = [logs()["totalItems"] for _ in range(40)]
        list(written)
    assert seen == sorted(seen)
    assert {entry["task"] for entry in logs()["logs"]} == {str(number) for number in range(40)}


def test_missing_state_folder_is_one_clear_line(tmp_path):
    done = StateFolder(tmp_path / "nowhere").run("recorder-logd")
    assert done.returncode == 1
    assert done.stderr.count("\n") == 1 and str(tmp_path / "nowhere") in done.stderr


def test_second_service_says_that_the_port_is_taken(state, logd):
    done = state.run("recorder-logd")
    assert done.returncode == 1
    assert done.stderr.count("\n") == 1 and "10150" in done.stderr


# --- retention -----------------------------------------------------------------------------------

DAY = 24 * 60 * 60 * 1000


def now():
    return int(time.time() * 1000)


def fill(state, count, event_id, time_ms):
    """Many events at once, straight into the database."""
    with closing(sqlite3.connect(state.path / "events.db")) as database, database:
        database.execute(
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?) "
            "INSERT INTO event (time_ms, event_id, channel, user, ip, arguments) "
            "SELECT ?, ?, -1, 'System', '127.0.0.1', '[\"Recording Backup\",\"t\"]' FROM n",
            (count, time_ms, int(event_id, 16)))


def wait_for_total(wanted):
    def only_those_are_left():
        total = logs(max_results=1)["totalItems"]
        assert total >= wanted
        return total == wanted

    wait_until(only_those_are_left, f"a log of {wanted} events")


@pytest.mark.parametrize("keep_days, kept", [(None, 365), ("1", 1), ("30", 30), ("0", 365),
                                             ("-1", 365), ("", 365), ("a week", 365)])
def test_events_older_than_the_configured_days_are_removed_at_the_start(state, keep_days, kept):
    if keep_days is not None:
        state.ctl("config", "set", "log", "keep_days", keep_days, "--force")
    state.add_event("62040001", now() - kept * DAY - 60_000, "u", "", APPLICATION, "too old")
    state.add_event("62040001", now() - kept * DAY + 600_000, "u", "", APPLICATION, "old")
    state.add_event("23150001", now(), "u", "", APPLICATION, "new")
    with running("recorder-logd", state):
        wait_for_total(2)
        assert [entry["task"] for entry in logs()["logs"]] == ["new", "old"]


def test_many_old_events_go_while_others_write_and_read(state):
    fill(state, 5_000, "23150001", now() - 400 * DAY)
    fill(state, 100, "62040001", now())
    with running("recorder-logd", state), ThreadPoolExecutor(2) as pool:
        def write(number):
            state.add_event("62040002", now(), "u", "", APPLICATION, str(number))

        written = pool.map(write, range(20))
        assert logs(sub_type="25092")["totalItems"] >= 100
        assert len(list(written)) == 20
        wait_for_total(120)
        reply = logs(sub_type="25092", max_results=1000)
        assert (reply["responseItems"], reply["totalItems"]) == (120, 120)


def test_service_ends_at_once_although_much_is_left_to_remove(state):
    fill(state, 100_000, "23150001", now() - 400 * DAY)
    with running("recorder-logd", state):
        assert 0 < logs(max_results=1)["totalItems"] <= 100_000
    with closing(sqlite3.connect(state.path / "events.db")) as database:
        left, = database.execute("SELECT count(*) FROM event").fetchone()
        counted, = database.execute("SELECT sum(events) FROM event_count").fetchone()
    assert 0 < left == counted


def test_database_of_an_older_schema_is_one_clear_line(state):
    with closing(sqlite3.connect(state.path / "events.db")) as database:
        database.execute("PRAGMA user_version = 1")
    done = state.run("recorder-logd")
    assert done.returncode == 1
    assert done.stderr.count("\n") == 1 and "recorderctl init" in done.stderr
