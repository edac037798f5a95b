"""recording-backupd on its real ports: notices, queries, deletion, restart, start-up errors."""
import base64
import json
import signal
import socket
import sqlite3

import pytest

from loopback import query as with_query
from loopback import request, request_json
from service_process import end, running, start_service
from state_folder import StateFolder
from waiting import wait_until

NOTIFY = (10205, "/databackupService/notify")
NO_CHANNEL_BUT_ONE = base64.b64encode(b'{"chIdxList": "0"}').decode()
TASKS = (10141, "/cfg/DataBackupService")
REASON = {"type": 1030, "action": 1}
DONE = (200, {"retCode": 0})


BLOCKER = "4"  # the task that runs, so that the others wait


@pytest.fixture
def state(tmp_path):
    """Tasks 1 to 4, whose server takes connections and never says a word."""
    with socket.create_server(("127.0.0.1", 0)) as silent:
        state = StateFolder(tmp_path / "state").init()
        state.add_tasks(4, serverIP="127.0.0.1", port=silent.getsockname()[1], destPath="/share",
                        content=NO_CHANNEL_BUT_ONE)
        state.add_channel(0, "Camera", tmp_path)
        yield state


@pytest.fixture
def daemon(state):
    with running("recording-backupd", state) as process:
        block()
        yield process


def block():
    assert start_task(int(BLOCKER)) == DONE
    assert running_tasks() == [BLOCKER]


def running_tasks():
    return [task["taskID"] for task in query("get_runningTask_info")[1]["runningTask_info"]]


def others(state):
    """The statuses without the running task's."""
    return {task: status for task, status in state.statuses().items() if task != BLOCKER}


def put(**members):
    notice = json.dumps({"notice_reason": REASON, **members})
    return request_json(NOTIFY[0], "PUT", NOTIFY[1], notice)


def start_task(task_id, stop_running=False, parallel=False):
    return put(task_info={"start_task": True, "taskID": task_id, "stop_running_task": stop_running,
                          "is_parallel_running": parallel})


def query(act):
    return request_json(NOTIFY[0], "GET", NOTIFY[1], act=act)


def waiting():
    status, reply = query("get_waitingTask_seq")
    assert status == 200 and reply["retCode"] == 0
    entries = reply["watinTask_info"]
    assert [entry["seq"] for entry in entries] == list(range(len(entries)))
    return [entry["taskID"] for entry in entries]


def delete(task_id):
    return request_json(TASKS[0], "DELETE", TASKS[1], taskID=task_id)


def test_reload_notice_is_taken(daemon):
    assert put() == DONE


def test_nothing_started_means_empty_replies(state):
    with running("recording-backupd", state):
        assert query("get_waitingTask_seq") == (200, {"retCode": 0, "watinTask_info": []})
        assert query("get_runningTask_info") == (
            200, {"retCode": 0, "max_parallel_task_num": 2, "runningTask_info": []})


def test_parallel_limit_is_read_afresh_and_wrong_ones_mean_two(state, daemon):
    for text, limit in (("5", 5), ("1", 1), ("0", 2), ("7", 7), ("many", 2)):
        state.ctl("config", "set", "backup", "max_parallel", text, "--force")
        assert query("get_runningTask_info")[1]["max_parallel_task_num"] == limit


def test_started_tasks_wait_in_order_for_the_one_that_runs(state, daemon):
    assert start_task(3) == DONE
    assert start_task(1) == DONE
    assert waiting() == ["3", "1"]
    assert state.statuses() == {"1": "wait", "2": "new", "3": "wait", BLOCKER: "prepare_start"}
    assert query("get_runningTask_info")[1]["runningTask_info"] == [
        {"taskID": BLOCKER, "finishRate": 0.0, "transferRate": 0.0}]


def test_parallel_start_runs_beside_up_to_the_limit(daemon):
    assert start_task(3, parallel=True) == DONE
    assert start_task(1, parallel=True) == DONE
    assert running_tasks() == ["3", BLOCKER]
    assert waiting() == ["1"]


def test_start_that_stops_what_runs_takes_its_place(state, daemon):
    for task_id in (1, 2):
        start_task(task_id)
    start_task(3, stop_running=True)
    wait_until(lambda: running_tasks() == ["3"], "the new task's turn")
    assert waiting() == ["1", "2"]
    assert state.statuses()[BLOCKER] == "cancel"


@pytest.mark.parametrize("task_id", ["1%00", "1%00x", "01", "+1", "1x", "%201", "1%20", "1.0"])
def test_identifier_that_only_begins_like_a_tasks_deletes_nothing(state, daemon, task_id):
    before = state.stored_tasks()
    status = request(TASKS[0], "DELETE", f"{TASKS[1]}?taskID={task_id}").status
    assert status == (400 if "%00" in task_id else 200)
    assert state.stored_tasks() == before


def test_start_of_unknown_task_is_refused(state, daemon):
    for task_id in (0, 9, -1):
        status, reply = start_task(task_id)
        assert status == 404
        assert reply == {"retCode": 404, "mesg": f"There is no task {task_id}."}
    assert waiting() == []


def test_stop_with_task_cancels_it(state, daemon):
    start_task(1)
    start_task(2)
    assert put(task_info={"start_task": False, "taskID": 1, "is_parallel_running": False,
                          "stop_running_task": True}) == DONE
    assert waiting() == ["2"]
    assert others(state) == {"1": "cancel", "2": "wait", "3": "new"}


def test_stop_of_a_running_task_cancels_it_and_the_next_one_runs(state, daemon):
    start_task(1)
    assert put(task_info={"start_task": False, "taskID": int(BLOCKER)}) == DONE
    wait_until(lambda: running_tasks() == ["1"], "the next task's turn")
    assert state.statuses()[BLOCKER] == "cancel"


def test_stop_without_task_stops_what_runs_and_not_what_waits(state, daemon):
    start_task(1)
    assert put(task_info={"start_task": False}) == DONE
    wait_until(lambda: running_tasks() == ["1"], "the next task's turn")
    assert state.statuses()[BLOCKER] == "cancel"


def test_deleted_running_task_is_stopped(state, daemon):
    start_task(1)
    assert delete(BLOCKER) == DONE
    wait_until(lambda: running_tasks() == ["1"], "the next task's turn")
    assert BLOCKER not in state.statuses()


def test_deleted_task_leaves_store_and_queue(state, daemon):
    start_task(1)
    start_task(2)
    assert delete("1") == DONE
    assert waiting() == ["2"]
    assert others(state) == {"2": "wait", "3": "new"}


def test_delete_of_unknown_task_succeeds(state, daemon):
    for task_id in ("9", "no number", "' OR 1=1 --"):
        assert delete(task_id) == DONE
    assert len(others(state)) == 3


def test_delete_without_task_is_refused(state, daemon):
    assert request_json(TASKS[0], "DELETE", TASKS[1])[0] == 400
    assert delete("")[0] == 400
    assert len(others(state)) == 3


def test_waiting_reply_stops_at_eleven_entries(state, daemon):
    state.add_tasks(12)
    for task_id in (1, 2, 3, *range(5, 15)):
        assert start_task(task_id) == DONE
    assert waiting() == ["1", "2", "3", *map(str, range(5, 13))]


def test_task_stored_while_the_daemon_runs_can_be_started(state, daemon):
    state.add_tasks(1)
    assert start_task(5) == DONE
    assert waiting() == ["5"]


@pytest.mark.parametrize("end_signal", [signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
def test_queue_outlives_the_daemon(state, end_signal):
    first = start_service("recording-backupd", state)
    block()
    for task_id in (2, 3, 1):
        start_task(task_id)
    assert end(first, end_signal) == (-9 if end_signal == signal.SIGKILL else 0)
    with running("recording-backupd", state):
        assert waiting() == ["2", "3", "1"]
        assert running_tasks() == [BLOCKER]
        assert others(state) == {"1": "wait", "2": "wait", "3": "wait"}


@pytest.mark.parametrize("body", [
    b"", b"nonsense", b"[]", b"{}", b"\0\xff", b'{"notice_reason": {"type": 1, "action": 1}}',
    b'{"notice_reason": {"type": 1030, "action": 1}, "task_info": 5}'])
def test_wrong_notice_is_refused_with_a_reason(daemon, body):
    status, reply = request_json(NOTIFY[0], "PUT", NOTIFY[1], body)
    assert status == 400
    assert reply["retCode"] == 400 and reply["mesg"].endswith(".")


@pytest.mark.parametrize("parameters", [{}, {"act": ""}, {"act": "get_other"}])
def test_unknown_query_is_refused(daemon, parameters):
    status, reply = request_json(NOTIFY[0], "GET", NOTIFY[1], **parameters)
    assert status == 400 and reply["retCode"] == 400


def test_wrong_paths_and_methods_are_refused(daemon):
    assert request_json(NOTIFY[0], "GET", "/")[0] == 404
    assert request_json(NOTIFY[0], "DELETE", TASKS[1], taskID="1")[0] == 404
    assert request_json(TASKS[0], "PUT", NOTIFY[1], "{}")[0] == 404
    reply = request(NOTIFY[0], "POST", NOTIFY[1], "{}")
    assert (reply.status, reply.headers["Allow"]) == (405, "PUT, GET")
    reply = request(TASKS[0], "GET", with_query(TASKS[1], taskID="1"))
    assert (reply.status, reply.headers["Allow"]) == (405, "DELETE")


def test_damaged_store_is_an_error_reply_and_not_the_end(state, daemon):
    connection = sqlite3.connect(state.path / "config.db")
    tables = [row[0] for row in connection.execute(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite_%'")]
    connection.execute("PRAGMA foreign_keys = OFF")
    for table in tables:
        connection.execute(f'DROP TABLE "{table}"')
    connection.commit()
    connection.close()
    status, reply = query("get_waitingTask_seq")
    assert status == 500 and reply["retCode"] == 500 and reply["mesg"]
    assert put(task_info={"start_task": False})[0] == 500
    assert query("get_other")[0] == 400


def refused_start(state, *arguments):
    done = state.run("recording-backupd", *arguments)
    assert done.returncode != 0
    return done.stderr


def test_second_daemon_says_that_the_port_is_taken_and_touches_nothing(state, daemon):
    start_task(1)
    line = refused_start(state)
    assert line.count("\n") == 1 and "10205" in line and "Address already in use" in line
    assert waiting() == ["1"]


def test_missing_state_folder_is_one_clear_line(tmp_path):
    line = refused_start(StateFolder(tmp_path / "nowhere"))
    assert line.count("\n") == 1
    assert str(tmp_path / "nowhere") in line and "recorderctl init" in line


def test_empty_state_folder_is_one_clear_line(tmp_path):
    line = refused_start(StateFolder(tmp_path))
    assert line.count("\n") == 1 and line.startswith("recording-backupd: ")
    assert list(tmp_path.iterdir()) == []


def test_help_names_ports_and_state_folder(tmp_path):
    said = StateFolder(tmp_path / "nowhere").output("recording-backupd", "--help")
    assert all(word in said for word in ("10205", "10141", "10206", "RECORDER_STATE"))


def test_unknown_argument_is_refused(state):
    assert "--surprise" in refused_start(state, "--surprise")
