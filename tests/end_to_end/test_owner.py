"""A recorder with a user of its own: all of it works, and nothing that it stores is root's."""
import os
from contextlib import suppress

import pytest

from places import DEBUG_FILE, LOG_EXPORT, STATE
from replies import SUCCESS
from stand_alone_recorder import Recorder

OWNER, OWNERS_GROUP = 4711, 4712


@pytest.fixture
def recorder():
    os.chown(STATE, OWNER, OWNERS_GROUP)
    try:
        with Recorder() as fresh:
            yield fresh
    finally:
        os.chown(STATE, 0, 0)


def owners(folder):
    """Of what stays: databases have journals for moments."""
    found = {}
    for path in (folder, *folder.rglob("*")):
        with suppress(FileNotFoundError):
            found[str(path)] = path.lstat().st_uid
    return found


def test_requests_and_services_of_a_recorder_of_its_own_user_work(recorder):
    recorder.create_successfully(taskName="first")
    assert recorder.call("POST", "task/1/is_enable", {"is_enable": False}).text == SUCCESS
    assert [entry["taskName"] for entry in recorder.list_tasks()] == ["first"]
    assert recorder.call("GET", "task/log").json["ret_code"] == 0
    assert recorder.call("GET", "channel").json["ret_code"] == 0
    download = recorder.call("GET", "task/log/file")
    assert b"first" in download.body
    assert len(recorder.requested_events()) == 2
    recorder.restart()
    assert [entry["taskName"] for entry in recorder.list_tasks()] == ["first"]
    assert recorder.call("DELETE", "task/1?isStop=1").text == SUCCESS


def test_what_a_recorder_of_its_own_user_stores_is_that_users(recorder):
    recorder.create_successfully(taskName="first")
    recorder.call("GET", "task/log/file")
    logs = str(STATE / "logs")
    stored = {path: owner for path, owner in owners(STATE).items() if not path.startswith(logs)}
    assert str(STATE / "backupd.db") in stored
    assert stored == dict.fromkeys(stored, OWNER)
    assert (LOG_EXPORT.lstat().st_uid, DEBUG_FILE.lstat().st_uid) == (OWNER, OWNER)
