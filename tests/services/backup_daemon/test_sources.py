"""What a run makes of recordings that cannot be read: never a success, and no copy is removed."""
import os
import shutil
import stat
import subprocess
from pathlib import Path

import pytest

from backup_house import FAILED, MIB, House, noise
from event_ids import FILE_NOT_COPIED, ROOM_MADE, RUN_FAILED, RUN_SUCCEEDED, SHARE_FULL
from fault_proxy import FaultProxy
from places import STORAGE
from recorder_clock import day_name
from waiting import wait_until
from web_logs import log_lines


def record_old_and_new(house, **settings):
    """A task with an old copy of camera 0, and a new recording of each of two cameras."""
    house.record(0, 9, "01-00-00.mp4", bytes(2 * MIB))
    task_id = house.create(**settings)
    house.run(task_id)
    for channel in (0, 1):
        house.record(channel, 1, "01-00-00.mp4", b"new")
    return task_id


def old_copy(house):
    return house.share / "recorder/Camera 0" / day_name(9) / "01-00-00.mp4"


def test_missing_folder_fails_the_run_and_no_copy_is_removed(house):
    task_id = record_old_and_new(house)
    house.recorder.ctl("task", "set", task_id, "remoteKeepRec=true", "remoteKeepRecDays=3")
    (STORAGE / "2").rename(STORAGE / "unmounted")
    house.run(task_id, FAILED)
    words = f"{STORAGE}/2 cannot be read: No such file or directory"
    assert house.last_event(FILE_NOT_COPIED) == [words]
    assert words in house.last_event(RUN_FAILED)[0]
    assert words in house.progress(task_id)[0]["message"]
    assert old_copy(house).exists()
    assert {f"Camera {number}/{day_name(1)}/01-00-00.mp4" for number in (0, 1)} < set(
        house.shared()), "the other cameras are copied"
    (STORAGE / "unmounted").rename(STORAGE / "2")
    house.run(task_id)
    assert not old_copy(house).exists()


def test_only_camera_without_a_folder_is_no_success(house):
    (STORAGE / "1").rmdir()
    house.run(house.create(chIdxList=[1]), FAILED)
    assert house.last_event(RUN_SUCCEEDED) is None


def test_camera_that_has_recorded_nothing_yet_is_a_success(house):
    house.run(house.create(chIdxList=[1]))
    assert house.last_event(RUN_SUCCEEDED) == ["0 files, 0 bytes"]


def test_file_where_a_folder_should_be_fails_the_run(house):
    (STORAGE / "1").rmdir()
    (STORAGE / "1").write_bytes(b"")
    house.run(house.create(chIdxList=[1]), FAILED)
    assert "Not a directory" in house.last_event(RUN_FAILED)[0]


def test_missing_folder_makes_no_room_on_a_full_share(tmp_path):
    share = tmp_path / "share"
    share.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", "size=4m", "small", share], check=True)
    with House(tmp_path, channels=2) as house:
        task_id = record_old_and_new(house, remoteOverwriteType="overwrite")
        shutil.rmtree(STORAGE / "1")
        house.record(0, 0, "02-00-00.mp4", bytes(3 * MIB))
        house.run(task_id, FAILED)
        assert house.last_event(SHARE_FULL)
        assert house.last_event(ROOM_MADE) is None
        assert old_copy(house).exists()
        (STORAGE / "1").mkdir()
        house.run(task_id)
        assert house.last_event(ROOM_MADE)


def take_its_place(path, kind):
    path.unlink()
    if kind == "pipe":
        os.mkfifo(path)
    elif kind == "device":
        os.mknod(path, 0o666 | stat.S_IFCHR, os.makedev(1, 5))  # zeros without end
    else:
        path.symlink_to("/etc/passwd")


@pytest.mark.parametrize("kind, words", [("pipe", "is not a file"), ("device", "is not a file"),
                                         ("link", "Too many levels of symbolic links")])
def test_what_takes_a_recordings_place_behind_its_listing_hangs_nobody(house, kind, words):
    house.record(0, 2, "01-00-00.mp4", noise(8 * MIB, "first"))
    swapped = house.record(0, 2, "02-00-00.mp4", b"second")
    house.record(0, 2, "03-00-00.mp4", b"third")
    with FaultProxy(house.samba.port) as proxy:
        proxy.crawl_after(2 * MIB)
        house.recorder.ctl("config", "set", "backup", "max_parallel", "6")  # so one lane
        task_id = house.create(port=proxy.port)
        house.force(task_id)
        wait_until(proxy.crawls, "the first file's start")
        take_its_place(swapped, kind)
        proxy.rate = None
        house.wait_for_end(task_id)
    assert house.status(task_id) == FAILED
    assert swapped.name in house.last_event(FILE_NOT_COPIED)[0]
    assert words in house.last_event(FILE_NOT_COPIED)[0]
    assert sorted(path.split("/")[-1] for path in house.shared()) == ["01-00-00.mp4",
                                                                      "03-00-00.mp4"]


def test_daemon_names_missing_folders_when_it_starts(house):
    (STORAGE / "2").rmdir()
    house.recorder.restart()
    line = f'channel 2 "Camera 2": {STORAGE}/2 cannot be read: No such file or directory'
    wait_until(lambda: line in log_lines("recording-backupd.log"), "the daemon's words")


@pytest.fixture
def systemd():
    """What says that units run the services."""
    place = Path("/run/systemd/system")
    made = [folder for folder in (place.parent, place) if not folder.exists()]
    place.mkdir(parents=True, exist_ok=True)
    yield
    for folder in reversed(made):
        folder.rmdir()


def test_folder_that_the_daemons_unit_hides_is_refused(house, systemd):
    recorder = house.recorder
    words = ("channel", "add", "--index", "9", "--guid", "g", "--ip", "i", "--name", "n", "--brand",
             "b", "--model", "m", "--streams", "1", "--recordings", "/tmp/recordings")
    assert recorder.refusal("recorderctl", *words) == (
        "/tmp/recordings is hidden from the backup daemon, which has a /tmp and /var/tmp of its "
        "own; --force adds the channel all the same")
