"""A valid request body of create and modify, which tests bend."""
import copy
import json

TASK = {
    "taskName": "Front door",
    "serverIP": "192.0.2.10",
    "port": 445,
    "username": "nvr",
    "password": "secret-of-the-share",
    "destPath": "/backup/cameras",
    "chIdxList": [3, 1, 2],
    "backupType": "BackupByLastDay",
    "backupDays": 7,
    "backupImmediately": False,
    "scheduleType": "weekly",
    "scheduleWeekly": 1,
    "scheduleHour": 2,
    "scheduleMin": 30,
    "scheduleEveryHours": 6,
    "recordingType": "recording_and_alarm",
    "recordingFormat": "ostra",
    "remoteKeepRec": True,
    "remoteKeepRecDays": 30,
    "remoteOverwriteType": "overwrite",
}

# No clock ever shows it: a task that nobody but the test starts.
NEVER = {"scheduleType": "daily", "scheduleHour": 25}


def task(without=None, **changes):
    """A request body with every member but one, some of them changed."""
    members = {**copy.deepcopy(TASK), **changes}
    members.pop(without, None)
    return members


def task_body(without=None, **changes):
    """The same as JSON text."""
    return json.dumps(task(without, **changes))
