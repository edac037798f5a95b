"""Creating, changing, listing and looking up tasks behind the real web server."""
from event_ids import BACKUP_STARTED, TASK_CREATED, TASK_MODIFIED
from replies import (CHANGE_STATUS_ERROR, INVALID_VALUE, PARSE_FAIL, STORE_UNKNOWN_TASK, SUCCESS,
                     error)
from sample_task import task
from waiting import wait_until


def times_apart(records):
    """Records without what the clock decides."""
    return [{key: record[key] for key in ("id", "user", "ip", "arguments")} for record in records]


def test_create_replies_success_as_json_without_a_task_identifier(recorder):
    reply = recorder.create()
    assert (reply.status, reply.headers["Content-Type"]) == (200, "application/json")
    assert reply.text == SUCCESS


def test_create_stores_every_member_of_the_request(recorder):
    recorder.create_successfully()
    assert recorder.stored_tasks() == [{
        "taskID": "1", "spareFlag": False, "enable": True, "taskName": "Front door", "port": 445,
        "serverIP": "192.0.2.10", "destPath": "/backup/cameras", "username": "nvr",
        "password": "secret-of-the-share", "chIdxList": "3,1,2", "backupType": 0, "backupDays": 7,
        "backupStartDay": "", "backupEndDay": "", "backupImmediately": False, "scheduleType": 1,
        "scheduleWeekly": 1, "scheduleHour": 2, "scheduleMin": 30, "scheduleEveryHours": 6,
        "recordingType": 2, "recordingFormat": 1, "remoteKeepRec": True, "remoteKeepRecDays": 30,
        "remoteOverwriteType": 1, "status": 1, "extraValue1": 0.0, "extraValue2": 0.0,
        "startTime": "", "endTime": ""}]


def test_create_turns_the_ends_of_a_time_range_into_local_days(recorder):
    # One second before and at local midnight, which is 23:00 UTC here.
    recorder.create_successfully(backupType="BackupByTimeRange", backupStartDay=1709247599,
                                 backupEndDay=1709247600)
    stored, = recorder.stored_tasks()
    assert (stored["backupType"], stored["backupStartDay"], stored["backupEndDay"]) == (
        1, "2024-02-29", "2024-03-01")
    listed, = recorder.list_tasks()
    assert listed["backupStartTimeStamp"] == 1709161200
    assert listed["backupEndTimeStamp"] == 1709247600


def test_create_writes_one_event_with_user_address_and_task(recorder):
    recorder.create_successfully()
    assert times_apart(recorder.events()) == [
        {"id": TASK_CREATED, "user": "admin", "ip": "127.0.0.1",
         "arguments": ["Recording Backup", "Front door"]}]


def test_create_that_is_refused_stores_nothing_and_writes_no_event(recorder):
    assert recorder.create(task(without="taskName")).text == error(PARSE_FAIL)
    assert recorder.create(backupDays=100).text == error(INVALID_VALUE)
    assert recorder.stored_tasks() == []
    assert recorder.events() == []


def test_create_with_backup_immediately_runs_the_task_and_no_other(recorder):
    recorder.create_successfully(taskName="scheduled")
    recorder.create_successfully(taskName="at once", backupImmediately=True)
    wait_until(lambda: recorder.stored_tasks()[1]["startTime"], "the run")
    scheduled, at_once = recorder.list_tasks()
    assert (scheduled["sequence"], scheduled["status"]) == (-1, "new")
    assert at_once["enable"] is True
    # The wish is carried out once and not kept.
    assert at_once["backupImmediately"] == 0


def test_start_at_once_is_an_event_unless_the_file_explorer_is_off(recorder):
    recorder.create_successfully(backupImmediately=True)
    assert [event["id"] for event in recorder.requested_events()] == [BACKUP_STARTED, TASK_CREATED]
    recorder.ctl("config", "set", "fuse", "fuse_enabled", "0")
    recorder.create_successfully(backupImmediately=True)
    assert [event["id"] for event in recorder.requested_events()] == [
        TASK_CREATED, BACKUP_STARTED, TASK_CREATED]
    wait_until(lambda: all(record["startTime"] for record in recorder.stored_tasks()), "both runs")


def test_modify_replaces_the_settings_of_the_task_in_the_path(recorder):
    recorder.create_successfully(taskName="first")
    recorder.create_successfully(taskName="second")
    # An identifier in the body has no say.
    body = task(taskName="changed", chIdxList=[], scheduleType="hour", port=4450, taskID="1")
    assert recorder.call("POST", "task/2", body).text == SUCCESS
    first, second = recorder.stored_tasks()
    assert first["taskName"] == "first"
    assert (second["taskName"], second["chIdxList"], second["scheduleType"], second["port"]) == (
        "changed", "", 2, 4450)
    assert times_apart(recorder.events())[0] == {
        "id": TASK_MODIFIED, "user": "admin", "ip": "127.0.0.1",
        "arguments": ["Recording Backup", "changed"]}


def test_modify_enables_the_task_and_makes_a_finished_one_new_again(recorder):
    recorder.create_successfully()
    for status, afterwards in ((0, "new"), (5, "new"), (6, "new"), (2, "wait")):
        recorder.ctl("task", "set", "1", f"status={status}", "enable=0")
        assert recorder.call("POST", "task/1", task()).text == SUCCESS
        entry, = recorder.list_tasks()
        assert (entry["status"], entry["enable"]) == (afterwards, True)


def test_modify_with_backup_immediately_starts_the_task_in_the_path(recorder):
    for name in ("first", "second"):
        recorder.create_successfully(taskName=name)
    assert recorder.call("POST", "task/1", task(backupImmediately=True)).text == SUCCESS
    wait_until(lambda: recorder.stored_tasks()[0]["startTime"], "the run")
    assert recorder.stored_tasks()[1]["startTime"] == ""


def test_modify_of_an_unknown_task_is_refused_and_changes_nothing(recorder):
    recorder.create_successfully()
    before = recorder.stored_tasks()
    for path in ("task/2", "task/01", "task/1x", "task/", "task"):
        reply = recorder.call("POST", path, task(taskName="changed"))
        assert reply.text == error(STORE_UNKNOWN_TASK), path
    assert recorder.stored_tasks() == before
    assert [event["id"] for event in recorder.events()] == [TASK_CREATED]


def test_modify_needs_both_day_counts_and_says_so_with_different_codes(recorder):
    recorder.create_successfully()
    for member, code in (("backupDays", INVALID_VALUE), ("remoteKeepRecDays", PARSE_FAIL)):
        assert recorder.call("POST", "task/1", task(without=member)).text == error(code)


def test_list_of_no_tasks_is_empty(recorder):
    assert recorder.call("GET", "task").text == (
        '{ "ret_code": 0, "mesg": "Success.", "task_list": [ ], "max_parallel_task_num": 2 }')


def test_list_gives_each_task_with_its_members_in_the_documented_order(recorder):
    recorder.create_successfully()
    assert recorder.call("GET", "task").text == (
        '{ "ret_code": 0, "mesg": "Success.", "task_list": [ { "taskID": "1", '
        '"taskName": "Front door", "serverIP": "192.0.2.10", "port": 445, "username": "nvr", '
        '"password": "secret-of-the-share", "destPath": "\\/backup\\/cameras", '
        '"chIdxList": [ 3, 1, 2 ], "backupType": "BackupByLastDay", "backupDays": 7, '
        '"backupStartDay": "", "backupEndDay": "", "backupStartTimeStamp": -1, '
        '"backupEndTimeStamp": -1, "backupImmediately": 0, "scheduleType": "weekly", '
        '"scheduleWeekly": 1, "scheduleHour": 2, "scheduleMin": 30, "scheduleEveryHours": 6, '
        '"recordingType": "recording_and_alarm", "recordingFormat": "ostra", "remoteKeepRec": 1, '
        '"remoteKeepRecDays": 30, "remoteOverwriteType": "overwrite", "status": "new", '
        '"enable": true, "transferRate": "-1.00", "finishRate": -1.0, "sequence": -1, '
        '"endTimeStamp": -1, "isFUSE": true } ], "max_parallel_task_num": 2 }')


def test_list_is_ordered_by_identifier_as_a_number(recorder):
    for number in range(1, 12):
        recorder.create_successfully(taskName=f"task {number}")
    assert [entry["taskID"] for entry in recorder.list_tasks()] == [
        str(number) for number in range(1, 12)]


def test_list_works_with_more_waiting_tasks_than_it_has_places_to_report(recorder):
    recorder.start_endless_run()
    for number in range(2, 16):
        recorder.create_successfully(taskName=f"task {number}")
        recorder.enqueue(number)
    sequences = [entry["sequence"] for entry in recorder.list_tasks()]
    # Places behind the eleventh are not reported.
    assert sequences == [-1, *range(11), -1, -1, -1]


def test_list_shows_rates_of_minus_two_for_a_task_that_the_daemon_does_not_run(recorder):
    recorder.create_successfully()
    recorder.ctl("task", "set", "1", "status=4")
    entry, = recorder.list_tasks()
    assert (entry["status"], entry["transferRate"], entry["finishRate"]) == ("running", "-2.00",
                                                                           -2.0)


def test_list_tells_the_configured_limit_only_while_something_runs(recorder):
    recorder.create_successfully()
    recorder.ctl("config", "set", "backup", "max_parallel", "5")
    assert recorder.call("GET", "task").json["max_parallel_task_num"] == 2
    recorder.ctl("task", "set", "1", "status=3")
    assert recorder.call("GET", "task").json["max_parallel_task_num"] == 5


def test_list_gives_the_end_of_a_run_as_local_wall_clock_seconds(recorder):
    recorder.create_successfully()
    recorder.ctl("task", "set", "1", "status=0", "endTime=1720000000")
    entry, = recorder.list_tasks()
    assert entry["endTimeStamp"] == 1720000000 + 2 * 3600  # summer time


def test_status_gives_the_word_of_the_task(recorder):
    recorder.create_successfully()
    word = '{ "ret_code": 0, "mesg": "Success.", "status": "%s" }'
    assert recorder.call("GET", "task/status/1").text == word % "new"
    assert recorder.call("GET", "task/status/1/ignored").text == word % "new"
    recorder.ctl("task", "set", "1", "status=7")
    assert recorder.call("GET", "task/status/1").text == word % "prepare_stop"


def test_status_of_an_unknown_task_is_empty(recorder):
    for path in ("task/status/7", "task/status", "task/status/"):
        assert recorder.call("GET", path).text == (
            '{ "ret_code": 0, "mesg": "Success.", "status": "" }')


def test_fuse_is_off_only_when_the_key_says_0(recorder):
    reply = '{ "ret_code": 0, "mesg": "Success.", "isFUSE": %s }'
    assert recorder.call("GET", "fuse").text == reply % "true"
    for value, answer in (("0", "false"), ("1", "true"), ("", "true"), ("off", "true")):
        recorder.ctl("config", "set", "fuse", "fuse_enabled", value, "--force")
        assert recorder.call("GET", "fuse").text == reply % answer, value


def test_create_while_the_daemon_is_down_reports_it_and_keeps_the_task(recorder):
    recorder.kill_service("recording-backupd")
    assert recorder.create(backupImmediately=True).text == error(CHANGE_STATUS_ERROR)
    assert [stored["taskName"] for stored in recorder.stored_tasks()] == ["Front door"]
    assert recorder.events() == []
    assert recorder.call("GET", "task").text == (
        '{ "ret_code": 2500460579.0, "mesg": "Get task list fail." }')
    # What needs no daemon goes on.
    assert recorder.call("GET", "task/status/1").json["status"] == "new"
    recorder.start_service("recording-backupd")
    assert [entry["taskName"] for entry in recorder.list_tasks()] == ["Front door"]


def test_routes_that_do_not_exist_answer_null_or_an_error_of_the_server(recorder):
    for method, path in (("PUT", "task/1"), ("PUT", "server"), ("PUT", "nothing"),
                         ("POST", "nothing"), ("POST", "task/1/active/other"),
                         ("POST", "task/1/other"), ("DELETE", "nothing"), ("DELETE", "task/1")):
        reply = recorder.call(method, path, task() if method != "DELETE" else None)
        assert (reply.status, reply.text) == (200, "null"), (method, path)
    # An unknown GET has no headers, which the web server cannot forward.
    for path in ("nothing", "task/nothing", "task/log/nothing", "Task"):
        assert recorder.call("GET", path).status == 500, path
    assert recorder.stored_tasks() == []
    recorder.create_successfully()


def test_paths_that_are_no_path_and_methods_that_are_no_method_have_codes_as_text(recorder):
    address = '{ "ret_code": "0x950a0002" }'
    assert recorder.call("GET", "/".join("abcdefghijklmnop")).text == address
    assert recorder.request("GET", "/cgi-bin/recording_backup.cgi?sid=" + recorder.sid
                            ).text == address
    for method in ("PATCH", "get", "OPTIONS"):
        assert recorder.call(method, "task").text == '{ "ret_code": "0x950a0003" }', method
