"""Every message to the backup daemon, byte for byte as a listening socket received it."""
import json
import sqlite3
from contextlib import closing

import pytest

from replies import (CHANGE_STATUS_ERROR, PARSE_FAIL, STORE_BAD_TEXT, STORE_UNKNOWN_TASK, SUCCESS,
                     WAITING_SEQUENCE_ERROR, error)
from sample_task import TASK, task_body
from waiting import SECONDS

NOTICE_PATH = "/databackupService/notify"
RELOAD = b'{ "notice_reason": { "type": 1030, "action": 1 } }'


def task_notice(task_info):
    return (b'{ "notice_reason": { "type": 1030, "action": 1 }, "task_info": { ' + task_info
            + b" } }")


def start_notice(task_id):
    return task_notice(b'"start_task": true, "taskID": %d, "stop_running_task": true, '
                       b'"is_parallel_running": false' % task_id)


def received(server):
    """Method, target and body of all requests so far; forgets them."""
    taken = [(request.method, request.target, request.body) for request in server.requests]
    server.requests.clear()
    return taken


def put(body):
    return ("PUT", NOTICE_PATH, body)


def query(act):
    return ("GET", f"{NOTICE_PATH}?act={act}", b"")


@pytest.fixture
def stored(program, daemon):
    """The program with tasks 1 to 3 stored."""
    for name in ("one", "two", "three"):
        assert program.create(task_body(taskName=name)).text == SUCCESS
    received(daemon)
    return program


def test_create_sends_the_reload_notice(program, daemon):
    assert program.create(task_body()).text == SUCCESS
    assert daemon.requests[0].headers["content-type"] == "application/json"
    assert received(daemon) == [put(RELOAD)]


def test_immediate_create_starts_the_new_task_after_the_reload(stored, daemon):
    assert stored.create(task_body(backupImmediately=True)).text == SUCCESS
    assert received(daemon) == [put(RELOAD), put(start_notice(4))]
    newest, before = stored.events()[:2]
    assert newest["arguments"] == ["Recording Backup", TASK["taskName"]]
    assert (newest["user"], newest["ip"]) == ("System", "127.0.0.1")
    assert (before["user"], before["ip"]) == ("admin", "198.51.100.9")


def test_modify_sends_the_reload_notice_and_starts_the_paths_task(stored, daemon):
    assert stored.modify(2, task_body()).text == SUCCESS
    assert received(daemon) == [put(RELOAD)]
    assert stored.modify(2, task_body(backupImmediately=True, taskID="3")).text == SUCCESS
    assert received(daemon) == [put(RELOAD), put(start_notice(2))]


def test_start_with_the_file_explorer_off_leaves_no_event(stored, daemon):
    stored.ctl("config", "set", "fuse", "fuse_enabled", "0")
    before = len(stored.events())
    assert stored.create(task_body(backupImmediately=True)).text == SUCCESS
    assert received(daemon) == [put(RELOAD), put(start_notice(4))]
    assert len(stored.events()) == before + 1  # the create alone


def test_refused_notice_is_reported_and_the_start_notice_sent_all_the_same(stored, daemon):
    daemon.status = 503
    assert stored.create(task_body(backupImmediately=True)).text == error(CHANGE_STATUS_ERROR)
    assert received(daemon) == [put(RELOAD), put(start_notice(4))]


def test_enable_change_sends_the_reload_notice(stored, daemon):
    assert stored.request("POST", "/task/2/is_enable", '{"is_enable": false}').text == SUCCESS
    assert received(daemon) == [put(RELOAD)]
    assert [task["enable"] for task in stored.stored_tasks()] == [True, False, True]


def delete(program, task_id, is_stop):
    query_string = f"sid={program.sid}&isStop={is_stop}"
    return program.request("DELETE", f"/task/{task_id}", query=query_string)


def test_delete_asks_the_configuration_service(stored, daemon, configuration_service):
    assert delete(stored, 2, 0).text == SUCCESS
    assert received(configuration_service) == [("DELETE", "/cfg/DataBackupService?taskID=2", b"")]
    assert received(daemon) == []


def test_delete_with_stop_sends_the_stop_notice_first(stored, daemon, configuration_service):
    assert delete(stored, 2, 1).text == SUCCESS
    assert received(daemon) == [put(task_notice(b'"start_task": false'))]
    assert received(configuration_service) == [("DELETE", "/cfg/DataBackupService?taskID=2", b"")]
    daemon.status = 500
    result = delete(stored, 2, 1)
    assert (result.text, result.status) == (error(CHANGE_STATUS_ERROR, "Delete task fail."), 0)
    assert received(configuration_service) == []


@pytest.mark.parametrize("task_id", ["a b&c=d#e", "%2F", "?taskID=3", "+", "\xe4"])
def test_delete_sends_a_strange_identifier_as_one_parameter(stored, daemon, configuration_service,
                                                            task_id):
    assert delete(stored, task_id, 0).text == SUCCESS
    request, = configuration_service.requests
    assert (request.path, request.query) == ("/cfg/DataBackupService", {"taskID": task_id})


def activate(program, task_id, body, force=""):
    return program.request("POST", f"/task/{task_id}/active{force}", json.dumps(body))


def test_activate_asks_what_runs_and_sends_its_notice(stored, daemon):
    assert activate(stored, 2, {"is_active": True}).status == 0
    assert received(daemon) == [
        query("get_runningTask_info"),
        put(task_notice(b'"start_task": true, "taskID": 2, "is_parallel_running": false, '
                        b'"stop_running_task": true'))]


def test_deactivate_sends_its_notice_without_asking(stored, daemon):
    assert activate(stored, "15abc", {"is_active": False}).status == 0
    assert received(daemon) == [
        put(task_notice(b'"start_task": false, "taskID": 15, "is_parallel_running": false, '
                        b'"stop_running_task": true'))]


@pytest.mark.parametrize("body, stop, parallel", [
    ({"is_force_running": True}, b"true", b"false"),
    ({"is_force_running": False}, b"false", b"false"),
    ({"is_force_running": True, "is_parallel_running": True}, b"false", b"true")])
def test_force_asks_what_runs_and_sends_its_notice(stored, daemon, body, stop, parallel):
    assert activate(stored, 3, body, "/enforcement").text == SUCCESS
    assert received(daemon) == [
        query("get_runningTask_info"),
        put(task_notice(b'"start_task": true, "taskID": 3, "stop_running_task": ' + stop
                        + b', "is_parallel_running": ' + parallel))]


def test_list_asks_for_the_queue_and_for_each_running_task(stored, daemon):
    stored.ctl("task", "set", "1", "status=4")
    stored.ctl("task", "set", "2", "status=3")
    daemon.answers["get_waitingTask_seq"] = (
        b'{"retCode": 0, "watinTask_info": [{"taskID": "3", "seq": 0}]}')
    daemon.answers["get_runningTask_info"] = (
        b'{"retCode": 0, "max_parallel_task_num": 4, "runningTask_info": '
        b'[{"taskID": "1", "finishRate": 33.36, "transferRate": 2048}]}')
    reply = json.loads(stored.request("GET", "/task").text)
    assert received(daemon) == [query("get_waitingTask_seq"), query("get_runningTask_info"),
                                query("get_runningTask_info")]
    assert reply["max_parallel_task_num"] == 4
    shown = [(task["transferRate"], task["finishRate"], task["sequence"])
             for task in reply["task_list"]]
    assert shown == [("2.00", 33.4, -1), ("-1.00", -1.0, -1), ("-1.00", -1.0, 0)]


@pytest.mark.parametrize("seq, status", [(-1, 0), (-2**31, 0), (-2**63, 0), (0, 0), (11, 0),
                                         (12, 0x20), (2**31, 0x20), (2**63, 0x20)])
def test_queue_places_outside_the_table_do_no_harm(stored, daemon, seq, status):
    daemon.answers["get_waitingTask_seq"] = json.dumps(
        {"retCode": 0, "watinTask_info": [{"taskID": "3" * 100_000, "seq": seq}]}).encode()
    assert stored.request("GET", "/task").status == status


@pytest.mark.parametrize("reply, code", [
    (b"", WAITING_SEQUENCE_ERROR), (b"no json", WAITING_SEQUENCE_ERROR),
    (b"[" * 100_000, WAITING_SEQUENCE_ERROR), (b"\0{}", WAITING_SEQUENCE_ERROR),
    (b"[]", PARSE_FAIL), (b"5", PARSE_FAIL), (b'{"retCode": 1}', PARSE_FAIL),
    (b'{"retCode": 0}', PARSE_FAIL), (b'{"retCode": 0, "watinTask_info": {}}', PARSE_FAIL),
    (b'{"retCode": 0, "watinTask_info": [null, 1]}', PARSE_FAIL)])
def test_strange_queue_replies_fail_the_list(stored, daemon, reply, code):
    daemon.answers["get_waitingTask_seq"] = reply
    assert stored.request("GET", "/task").text == error(code, "Get task list fail.")


# --- events of requests that fail or are refused --------------------------------------------------

EVENTS_A_MINUTE = 100
REPEAT_NEWEST = """
WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < ?)
INSERT INTO event (time_ms, event_id, channel, user, ip, arguments)
SELECT time_ms, event_id, channel, user, ip, arguments
FROM n, (SELECT * FROM event ORDER BY id DESC LIMIT 1)"""


def all_but_one_of_a_minute(program):
    """Has there be as many events as the newest one, but for one: so many requests may take a busy
    machine longer than a minute."""
    with closing(sqlite3.connect(program.path / "events.db", timeout=SECONDS)) as log, log:
        log.execute(REPEAT_NEWEST, [EVENTS_A_MINUTE - 2])


def test_request_that_fails_leaves_no_event(stored, daemon):
    before = stored.events()
    daemon.status = 503
    assert stored.modify(9, task_body(backupImmediately=True)).text == error(STORE_UNKNOWN_TASK)
    assert stored.create(task_body(taskName='"', backupImmediately=True)).text == error(
        STORE_BAD_TEXT)
    for segments in ("active", "active/enforcement", "is_enable"):
        for task_id in (1, 9):
            body = '{"is_active": true, "is_force_running": true, "is_enable": true}'
            reply = json.loads(stored.request("POST", f"/task/{task_id}/{segments}", body).text)
            assert reply["ret_code"] != 0, segments
    assert stored.request("PUT", "/task", task_body(), query="sid=1").status != 0
    assert stored.events() == before


def test_refused_create_that_starts_an_older_task_leaves_a_hundred_events_a_minute(stored, daemon):
    before = len(stored.events())
    for number in range(4):
        body = task_body(taskName=f'{number}"', backupImmediately=True)
        assert stored.create(body).text == error(STORE_BAD_TEXT)
        if number == 0:
            all_but_one_of_a_minute(stored)
    assert len(stored.events("--limit", "1000")) - before == EVENTS_A_MINUTE


def test_start_that_the_file_explorer_refuses_leaves_a_hundred_events_a_minute(stored, daemon):
    stored.ctl("config", "set", "fuse", "fuse_enabled", "0")
    before = len(stored.events())
    for number in range(4):
        assert '"isFUSE": false' in stored.request("POST", f"/task/{number}/active", "{}").text
        if number == 0:
            all_but_one_of_a_minute(stored)
    assert len(stored.events("--limit", "1000")) - before == EVENTS_A_MINUTE
