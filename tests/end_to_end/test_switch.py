"""Enabling, deleting, starting and forcing tasks behind the web server, with the real daemon."""
import json
import socket
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from threading import Thread

import pytest

from event_ids import (BACKUP_FORCED, BACKUP_STARTED, BACKUP_STOPPED, START_REFUSED, TASK_DELETED,
                       TASK_DISABLED, TASK_ENABLED)
from places import STORAGE
from recorder_clock import day_name
from replies import (CHANGE_STATUS_ERROR, INPUT_FORMAT_ERROR, PARSE_FAIL, RUNNING_INFO_ERROR,
                     STORE_UNKNOWN_TASK, SUCCESS, error)
from waiting import wait_until

NOTICE_PORT = 10205

ACTIVE = ('{ "ret_code": 0, "mesg": "Success.", "has_running_task": %s, "isFUSE": %s, '
          '"taskID": "%s", "taskName": "%s" }')
DONE = ACTIVE % ("false", "true", "", "")
LIVE = ("running", "prepare_start", "wait")


@pytest.fixture
def three(recorder):
    """Tasks 1 "Doors", 2 "Yard" and 3 "Night copy" with something to copy, and a server that takes
    connections and never says a word: whatever runs does so until it is stopped."""
    folder = STORAGE / "front"
    day = folder / day_name(1)
    day.mkdir(parents=True)
    (day / "12-00-00.mp4").write_bytes(b"recorded")
    recorder.add_channel(0, "Front", folder)
    with socket.create_server(("127.0.0.1", 0)) as silent:
        for name in ("Doors", "Yard", "Night copy"):
            recorder.create_successfully(taskName=name, serverIP="127.0.0.1", chIdxList=[0],
                                         port=silent.getsockname()[1])
        yield recorder


def events(recorder, event_id):
    """User, address and arguments of the events of one kind, newest first."""
    return [(event["user"], event["ip"], event["arguments"]) for event in recorder.events()
            if event["id"] == event_id]


def of_admin(name):
    return ("admin", "127.0.0.1", ["Recording Backup", name])


def of_system(*names):
    return ("System", "127.0.0.1", ["Recording Backup", *names])


def activate(recorder, task_id, active):
    return recorder.call("POST", f"task/{task_id}/active", {"is_active": active}).text


def force(recorder, task_id, **flags):
    return recorder.call("POST", f"task/{task_id}/active/enforcement", flags).text


def live(recorder):
    """Identifiers of what runs, then of what waits in queue order."""
    tasks = [entry for entry in recorder.list_tasks() if entry["status"] in LIVE]
    return [entry["taskID"] for entry in
            sorted(tasks, key=lambda entry: (entry["status"] == "wait", entry["sequence"]))]


# --- enable and disable --------------------------------------------------------------------------


def test_disable_and_enable_change_the_one_member_and_leave_their_events(three):
    before = three.stored_tasks()
    assert three.call("POST", "task/2/is_enable", {"is_enable": False}).text == SUCCESS
    assert three.stored_tasks() == [before[0], {**before[1], "enable": False}, before[2]]
    assert [entry["enable"] for entry in three.list_tasks()] == [True, False, True]
    assert three.call("POST", "task/2/is_enable/ignored", {"is_enable": True}).text == SUCCESS
    assert three.stored_tasks() == before
    assert events(three, TASK_DISABLED) == [of_admin("Yard")]
    assert events(three, TASK_ENABLED) == [of_admin("Yard")]


def test_enable_of_an_unknown_task_is_refused_without_event(three):
    reply = three.call("POST", "task/9/is_enable", {"is_enable": False})
    assert reply.text == error(STORE_UNKNOWN_TASK)
    assert events(three, TASK_DISABLED) == []


def test_enable_with_a_bad_body_changes_nothing(three):
    before = three.stored_tasks()
    assert three.call("POST", "task/2/is_enable", "no json").text == "null"
    assert three.call("POST", "task/2/is_enable").text == "null"
    assert three.call("POST", "task/2/is_enable", {"enable": False}).text == error(
        PARSE_FAIL)
    assert three.stored_tasks() == before
    assert events(three, TASK_DISABLED) == []


def test_enable_while_the_daemon_is_down_is_stored_and_reported(three):
    three.kill_service("recording-backupd")
    reply = three.call("POST", "task/2/is_enable", {"is_enable": False})
    assert reply.text == error(CHANGE_STATUS_ERROR)
    assert [stored["enable"] for stored in three.stored_tasks()] == [True, False, True]
    assert events(three, TASK_DISABLED) == []


# --- delete --------------------------------------------------------------------------------------


def test_delete_removes_the_task_and_its_name_stands_in_the_event(three):
    assert three.call("DELETE", "task/2?isStop=0").text == SUCCESS
    assert [stored["taskName"] for stored in three.stored_tasks()] == ["Doors", "Night copy"]
    assert [entry["taskID"] for entry in three.list_tasks()] == ["1", "3"]
    assert events(three, TASK_DELETED) == [of_admin("Yard")]
    assert three.call("GET", "task/log").json["logs"][0]["task"] == "Yard"


def test_delete_after_a_stop_removes_every_task_with_its_own_name(three):
    assert activate(three, 1, True) == DONE
    for task_id in (1, 2, 3):
        assert three.call("DELETE", f"task/{task_id}?isStop=1").text == SUCCESS
    assert three.stored_tasks() == []
    assert three.list_tasks() == []
    assert events(three, TASK_DELETED) == [of_admin(name)
                                            for name in ("Night copy", "Yard", "Doors")]


def test_delete_of_an_unknown_task_succeeds_with_an_empty_name(three):
    assert three.call("DELETE", "task/9?isStop=0").text == SUCCESS
    assert len(three.stored_tasks()) == 3
    assert events(three, TASK_DELETED) == [of_admin("")]


def test_delete_without_is_stop_does_nothing(three):
    assert three.call("DELETE", "task/2").text == "null"
    assert len(three.stored_tasks()) == 3
    assert events(three, TASK_DELETED) == []


def test_delete_while_the_daemon_is_down_deletes_nothing(three):
    three.kill_service("recording-backupd")
    assert three.call("DELETE", "task/2?isStop=0").text == error(-1, "Delete task fail.")
    assert three.call("DELETE", "task/2?isStop=1").text == error(CHANGE_STATUS_ERROR,
                                                                   "Delete task fail.")
    assert len(three.stored_tasks()) == 3
    assert events(three, TASK_DELETED) == []


# --- start, stop, force --------------------------------------------------------------------------


def test_start_and_stop_of_a_task_leave_their_events(three):
    assert activate(three, 1, True) == DONE
    assert live(three) == ["1"]
    assert events(three, BACKUP_STARTED)[0] == of_system("Doors")
    assert activate(three, 1, False) == DONE
    wait_until(lambda: three.call("GET", "task/status/1").json["status"] == "cancel", "the stop")
    assert live(three) == []
    assert events(three, BACKUP_STOPPED)[0] == of_system("Doors")


def test_start_with_the_file_explorer_off_is_an_event_and_nothing_else(three):
    three.ctl("config", "set", "fuse", "fuse_enabled", "0")
    assert activate(three, 1, True) == ACTIVE % ("false", "false", "", "")
    assert live(three) == []
    assert events(three, START_REFUSED) == [of_system("Doors")]
    assert three.call("GET", "task/log").json["logs"][0]["event"] == (
        "Activation refused: file explorer is off")


def test_start_of_an_unknown_task_is_refused_by_the_daemon(three):
    assert activate(three, 9, True) == error(CHANGE_STATUS_ERROR, "Active task fail.")
    assert force(three, 9, is_force_running=True) == error(CHANGE_STATUS_ERROR,
                                                             "Force active task fail.")
    assert live(three) == []
    assert events(three, BACKUP_STARTED) == events(three, BACKUP_FORCED) == []


def test_force_puts_the_task_before_all_others(three):
    for task_id in (1, 2):
        assert force(three, task_id, is_force_running=False) == SUCCESS
    assert force(three, 3, is_force_running=True) == SUCCESS
    wait_until(lambda: live(three)[0] == "3", "the forced task's turn")
    forced, = events(three, BACKUP_FORCED)
    assert forced[2][:2] == ["Recording Backup", "Night copy"]
    assert forced[2][2] in ("", "Doors", "Yard")  # whatever ran at that moment


def test_force_in_parallel_stops_nothing_and_leaves_no_event(three):
    assert force(three, 1, is_force_running=True, is_parallel_running=True) == SUCCESS
    assert force(three, 2, is_force_running=True, is_parallel_running=True) == SUCCESS
    assert sorted(live(three)) == ["1", "2"]
    assert events(three, BACKUP_FORCED) == []


def test_force_without_force_queues_behind_the_others(three):
    for task_id in (2, 1, 3):
        assert force(three, task_id, is_force_running=False) == SUCCESS
    assert live(three)[-1] == "3"
    assert sorted(live(three)) == ["1", "2", "3"]
    assert events(three, BACKUP_FORCED) == []


def test_start_and_force_with_a_bad_body_have_the_same_message(three):
    for path in ("task/1/active", "task/1/active/enforcement"):
        for body in ("no json", None):
            assert three.call("POST", path, body).text == error(INPUT_FORMAT_ERROR,
                                                                  "Active task fail.")
    assert three.call("POST", "task/1/active", {}).text == error(PARSE_FAIL, "Active task fail.")
    assert force(three, 1) == error(PARSE_FAIL, "Force active task fail.")
    assert live(three) == []


def test_start_and_force_while_the_daemon_is_down_are_reported(three):
    three.kill_service("recording-backupd")
    assert activate(three, 1, True) == error(RUNNING_INFO_ERROR, "Active task fail.")
    assert activate(three, 1, False) == error(CHANGE_STATUS_ERROR, "Active task fail.")
    assert force(three, 1, is_force_running=True) == error(RUNNING_INFO_ERROR,
                                                             "Force active task fail.")
    assert events(three, BACKUP_STARTED) == events(three, BACKUP_FORCED) == []


# --- while a task runs, as a daemon of the test's own says ---------------------------------------


class BusyDaemon(BaseHTTPRequestHandler):
    """Says that tasks 1 and 2 run, and keeps the notices."""
    notices = []

    def reply(self, answer):
        body = json.dumps(answer).encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        self.reply({"retCode": 0, "max_parallel_task_num": 2,
                    "runningTask_info": [{"taskID": "1"}, {"taskID": "2"}]})

    def do_PUT(self):
        self.notices.append(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
        self.reply({"retCode": 0})

    def log_message(self, *_):
        pass


@pytest.fixture
def busy(three):
    """The recorder with such a daemon in the real one's place."""
    three.kill_service("recording-backupd")
    BusyDaemon.notices = []
    with ThreadingHTTPServer(("127.0.0.1", NOTICE_PORT), BusyDaemon) as server:
        thread = Thread(target=server.serve_forever)
        thread.start()
        yield three
        server.shutdown()
        thread.join()


def test_start_is_refused_while_a_task_runs_and_the_reply_names_the_last_one(busy):
    refused = ACTIVE % ("true", "true", "2", "Yard")
    assert activate(busy, 3, True) == refused
    assert activate(busy, 2, True) == refused
    assert BusyDaemon.notices == []
    assert events(busy, BACKUP_STARTED) == []


def test_stop_is_never_refused(busy):
    assert activate(busy, 1, False) == DONE
    assert [notice["task_info"]["start_task"] for notice in BusyDaemon.notices] == [False]
    assert events(busy, BACKUP_STOPPED) == [of_system("Doors")]


def test_force_event_names_the_task_that_had_to_go(busy):
    assert force(busy, 3, is_force_running=True) == SUCCESS
    assert events(busy, BACKUP_FORCED) == [of_system("Night copy", "Yard")]
    assert busy.call("GET", "task/log").json["logs"][0]["event"] == (
        "Backup forced: Night copy replaced Yard")
