"""recorderctl task: the stored records are listed, and their fields set all or none."""
import pytest

from failures import misused, refused

# A task of which the store was told nothing but its name.
NEW = {
    "taskID": "1", "spareFlag": False, "enable": False, "taskName": "Doors", "port": 0,
    "serverIP": "", "destPath": "", "username": "", "password": "", "chIdxList": "",
    "backupType": 0, "backupDays": 0, "backupStartDay": "", "backupEndDay": "",
    "backupImmediately": False, "scheduleType": 0, "scheduleWeekly": 0, "scheduleHour": 0,
    "scheduleMin": 0, "scheduleEveryHours": 0, "recordingType": 0, "recordingFormat": 0,
    "remoteKeepRec": False, "remoteKeepRecDays": 0, "remoteOverwriteType": 0, "status": 0,
    "extraValue1": 0.0, "extraValue2": 0.0, "startTime": "", "endTime": "",
}
WORDS = ["success", "new", "wait", "prepare_start", "running", "cancel", "failed", "prepare_stop"]


@pytest.fixture
def doors(state):
    state.store_task(taskName="Doors")
    return state


def test_a_new_recorder_has_no_tasks(state):
    assert state.ctl("task", "list") == state.ctl("task", "list", "--json") == ""


def test_a_task_is_listed_with_every_field_of_the_record_in_its_order(doors):
    stored, = doors.stored_tasks()
    assert list(stored.items()) == list(NEW.items())
    assert [type(value) for value in stored.values()] == [type(value) for value in NEW.values()]


def test_a_row_has_identifier_switch_status_and_name(doors):
    doors.store_task(taskName="Yard", enable=True, status=2)
    assert doors.ctl("task", "list") == ("1\tdisabled\tsuccess\tDoors\n"
                                         "2\tenabled\twait\tYard\n")


@pytest.mark.parametrize("status, word", enumerate(WORDS))
def test_a_row_tells_the_status_as_a_word(doors, status, word):
    doors.ctl("task", "set", "1", f"status={status}")
    assert doors.ctl("task", "list") == f"1\tdisabled\t{word}\tDoors\n"


def test_tasks_are_listed_by_identifier_as_a_number(state):
    state.add_tasks(11)
    assert [task["taskID"] for task in state.stored_tasks()] == [str(n) for n in range(1, 12)]


def test_set_prints_the_identifier_and_changes_these_fields_of_this_task_alone(doors):
    doors.store_task(taskName="Yard")
    other = doors.stored_tasks()[1]
    assert doors.ctl("task", "set", "1", "status=6", "enable=true", "taskName=a=b", "port=445",
                     "extraValue1=1.5", "startTime=") == "1\n"
    assert doors.stored_tasks() == [
        {**NEW, "status": 6, "enable": True, "taskName": "a=b", "port": 445, "extraValue1": 1.5},
        other]


@pytest.mark.parametrize("field, text, value", [
    ("enable", "true", True), ("enable", "1", True), ("taskName", "", ""),
    ("taskName", "Tür \"%s\"", "Tür \"%s\""), ("status", "0", 0), ("backupDays", "-5", -5),
    ("recordingType", "2", 2)])
def test_a_field_is_set_as_its_kind(doors, field, text, value):
    doors.ctl("task", "set", "1", f"{field}={text}")
    assert doors.stored_tasks() == [{**NEW, field: value}]


@pytest.mark.parametrize("wrong", [
    "status=8", "status=-1", "status=", "status=x", "status=1.5", "port=99999999999", "enable=yes",
    "extraValue1=x", "nothing=1", "taskID=2", "=1", "Status=1"])
def test_one_wrong_field_changes_nothing(doors, wrong):
    assert refused(doors, "task", "set", "1", "port=5", wrong, "taskName=other") == (
        "no such field of a task, or no value for it; nothing was changed")
    assert doors.stored_tasks() == [NEW]


@pytest.mark.parametrize("wrong", ["status", "", "status 1"])
def test_a_word_that_is_no_assignment_changes_nothing(doors, wrong):
    assert refused(doors, "task", "set", "1", "port=5", wrong) == (
        f"write FIELD=VALUE, not {wrong}")
    assert doors.stored_tasks() == [NEW]


@pytest.mark.parametrize("task_id", ["2", "0", "-1", "x", "", "01", "1x"])
def test_an_unknown_task_is_named(doors, task_id):
    assert refused(doors, "task", "set", task_id, "status=1") == f"there is no task {task_id}"
    assert doors.stored_tasks() == [NEW]


@pytest.mark.parametrize("words, missing", [([], "ID"), (["1"], "FIELD=VALUE")])
def test_a_missing_word_is_named(doors, words, missing):
    assert misused(doors, "task", "set", *words) == f"{missing} is required"
