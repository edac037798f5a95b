"""Recordings' folders that must not be entered, or break while they are listed: never a success."""
import os
import shutil
import tempfile
from pathlib import Path

import pytest

from backup_house import FAILED, noise, tree
from event_ids import FILE_NOT_COPIED, RETENTION_PASS, RUN_FAILED
from failing_folder import DEVICE, failing_folder
from lone_daemon import LoneDaemon
from places import PROGRAMS, STORAGE
from recorder_clock import day_name
from samba_server import SambaServer
from service_process import start

OWNER = 4242
NONE_REMOVED = " removed: a run that has failed removes none"
KEEP = ("remoteKeepRec=true", "remoteKeepRecDays=3")


@pytest.mark.skipif(not os.path.exists(DEVICE), reason="no file system in user space here")
def test_folder_that_breaks_while_it_is_listed_fails_the_run_and_no_copy_is_removed(house):
    for days_ago in (9, 8):
        house.record(0, days_ago, "01-00-00.mp4", noise(1000, days_ago))
    task_id = house.create()
    house.run(task_id)
    house.recorder.ctl("task", "set", task_id, *KEEP)
    house.record(1, 1, "01-00-00.mp4", b"new")
    with failing_folder(STORAGE / "2"):
        house.run(task_id, FAILED)
        words = f"{STORAGE}/2 cannot be read: Input/output error"
        assert house.last_event(FILE_NOT_COPIED) == [words]
        assert words in house.last_event(RUN_FAILED)[0]
        assert f"Camera 1/{day_name(1)}/01-00-00.mp4" in house.shared(), "the others are copied"
        assert len(house.shared()) == 3, "no copy is removed"
        assert house.last_event(RETENTION_PASS)[0].endswith(NONE_REMOVED)
    house.run(task_id)
    assert f"Camera 0/{day_name(9)}/01-00-00.mp4" not in house.shared()


class DaemonOfAUser(LoneDaemon):
    """It runs as the user whom its state belongs to, and may read what that user may."""

    def start(self):
        for path in (self.path, *self.path.rglob("*")):
            os.chown(path, OWNER, OWNER)
        # The build folder may be where that user cannot come.
        program = shutil.copy(PROGRAMS / "recording-backupd", self.path.parent)
        self.process = start(
            self.inside("/usr/bin/setpriv", "--reuid", OWNER, "--regid", OWNER, "--clear-groups",
                        program),
            "recording-backupd: listening", env=self.environment)


@pytest.fixture
def open_folder():
    """One that every user may come into; those of the tests are root's alone."""
    folder = Path(tempfile.mkdtemp())
    folder.chmod(0o755)
    yield folder
    shutil.rmtree(folder)


def details(daemon, event_id):
    return [event["arguments"][2] for event in daemon.events() if event["id"] == event_id]


def test_folder_that_must_not_be_entered_fails_the_run_and_no_copy_is_removed(open_folder):
    share = open_folder / "share"
    share.mkdir()
    shares = {"backup": {"path": share, "read only": "no", "force user": "root"}}
    with (SambaServer(open_folder / "samba", shares) as server,
          DaemonOfAUser(open_folder, server) as daemon):
        for number in range(2):
            daemon.add_camera(number, f"Camera {number}")
        for days_ago in (9, 8):
            daemon.record(0, day_name(days_ago), "01-00-00.mp4", noise(1000, days_ago))
        daemon.start()
        task_id = daemon.add_task(chIdxList="0,1")
        assert daemon.run_task(task_id) == "success"
        old = tree(share / "recorder")
        daemon.ctl("task", "set", task_id, *KEEP)
        daemon.record(1, day_name(1), "01-00-00.mp4", b"new")
        folder = daemon.recordings / "0"
        folder.chmod(0o700)
        assert daemon.run_task(task_id) == "failed"
        words = f"{folder} cannot be read: Permission denied"
        assert details(daemon, FILE_NOT_COPIED) == [words]
        assert words in details(daemon, RUN_FAILED)[0]
        new = f"Camera 1/{day_name(1)}/01-00-00.mp4"
        assert tree(share / "recorder").items() >= old.items(), "no copy is removed"
        assert new in tree(share / "recorder"), "the other camera is copied"
        assert details(daemon, RETENTION_PASS)[0].endswith(NONE_REMOVED)
        folder.chmod(0o755)
        assert daemon.run_task(task_id) == "success"
        assert f"Camera 0/{day_name(9)}/01-00-00.mp4" not in tree(share / "recorder")
