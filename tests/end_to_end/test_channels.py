"""Listing cameras behind the real web server: states, oldest recordings, odd folders."""
import os
import shutil
import time

import pytest

from places import STATE, STORAGE
from recorder_clock import local
from stand_alone_recorder import Recorder

RECORDINGS = STORAGE / "recordings"
INDEX = STATE / "recordings.index"
UNTRUSTED_SECONDS = 2.1  # so long a folder is read anew after a change
LIST_FAIL = '{ "ret_code": 2500460551.0, "mesg": "Get Channel List Fail." }'


def add(recorder, index, name, streams=2, brand="Acme", folder=None):
    """Adds a camera; returns its folder, which there is."""
    folder = folder or RECORDINGS / name
    folder.mkdir(parents=True, exist_ok=True)
    recorder.add_channel(index, name, folder, guid="guid-" + name, ip=f"192.0.2.{index}",
                         brand=brand, streams=streams)
    return folder


def record(folder, name, content=b"x"):
    path = folder / name
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content)
    return path


def record_now(recorder, folder):
    """A recording that begins now."""
    name = local(time.time(), "%Y-%m-%d/%H-%M-%S.mp4", recorder.environment["TZ"])
    return record(folder, name)


def listed(recorder):
    reply = recorder.call("GET", "channel")
    assert (reply.status, reply.headers["Content-Type"]) == (200, "application/json")
    assert (reply.json["ret_code"], reply.json["mesg"]) == (0, "Success.")
    assert list(reply.json) == ["ret_code", "mesg", "channel_list"]
    return reply.json["channel_list"]


def states(recorder):
    return {entry["name"]: entry["connection_status"] for entry in listed(recorder)}


def oldest(recorder):
    return {entry["name"]: (entry["earlyest_local_time"], entry["earlyest_utc_times"])
            for entry in listed(recorder)}


NONE = ("1970-01-01", 0)


def test_a_recorder_without_cameras_has_an_empty_list(recorder):
    assert recorder.call("GET", "channel").text == (
        '{ "ret_code": 0, "mesg": "Success.", "channel_list": [ ] }')


def test_cameras_in_different_states_then_the_removed_one_that_has_recordings(recorder):
    record_now(recorder, add(recorder, 3, "connected"))
    record(add(recorder, 1, "disconnected"), "2024-01-02/10-00-00.mp4")
    os.utime(RECORDINGS / "disconnected/2024-01-02/10-00-00.mp4", (0, 0))
    record_now(recorder, add(recorder, 0, "in error"))
    recorder.ctl("channel", "state", "0", "1,0")
    record_now(recorder, add(recorder, 2, "connecting"))
    recorder.ctl("channel", "state", "2", "4,3")
    record(add(recorder, 4, "removed"), "2024-07-01/alarm/00-30-00.mp4")
    add(recorder, 5, "removed without recordings")
    for index in ("4", "5"):
        recorder.ctl("channel", "remove", index)
    entries = listed(recorder)
    assert [(entry["channel_index"], entry["name"], entry["connection_status"])
            for entry in entries] == [
        (0, "in error", "NVR_CAM_CONNECTION_ERROR"), (1, "disconnected", "NVR_CAM_DISCONNECTED"),
        (2, "connecting", "NVR_CAM_CONNECTING"), (3, "connected", "NVR_CAM_CONNECTED"),
        (4, "removed", "NVR_CAM_REMOVED")]
    assert entries[1] == {
        "earlyest_local_time": "2024-01-02", "earlyest_utc_times": 1704186000,
        "guid": "guid-disconnected", "channel_index": 1, "ip": "192.0.2.1", "name": "disconnected",
        "brand": "Acme", "model": "X1", "connection_status": "NVR_CAM_DISCONNECTED"}
    assert entries[4] == {
        "earlyest_local_time": "2024-07-01", "earlyest_utc_times": 1719786600,
        "guid": "guid-removed", "channel_index": 4, "ip": "--", "name": "removed",
        "brand": "--", "model": "--", "connection_status": "NVR_CAM_REMOVED"}


def test_a_removed_camera_goes_with_its_last_recording_and_comes_back_when_added(recorder):
    folder = add(recorder, 0, "camera")
    record(folder, "2024-01-02/10-00-00.mp4")
    recorder.ctl("channel", "remove", "0")
    assert states(recorder) == {"camera": "NVR_CAM_REMOVED"}
    add(recorder, 0, "camera")
    assert states(recorder)["camera"] != "NVR_CAM_REMOVED"
    recorder.ctl("channel", "remove", "0")
    shutil.rmtree(folder)
    assert listed(recorder) == []


def test_a_camera_without_streams_repeats_the_status_before_it(recorder):
    record_now(recorder, add(recorder, 0, "with"))
    add(recorder, 1, "without", streams=0, brand="")
    assert states(recorder) == {"with": "NVR_CAM_CONNECTED", "without": "NVR_CAM_CONNECTED"}
    recorder.ctl("channel", "state", "0", "7,7")
    assert states(recorder)["without"] == "NVR_CAM_DISCONNECTED"


def test_folders_that_vanish_leave_their_camera_without_recordings(recorder):
    for index, name in enumerate(("day", "channel", "all")):
        record(add(recorder, index, name), "2024-01-02/10-00-00.mp4")
    assert set(oldest(recorder).values()) == {("2024-01-02", 1704186000)}
    shutil.rmtree(RECORDINGS / "day/2024-01-02")
    shutil.rmtree(RECORDINGS / "channel")
    assert oldest(recorder) == {"day": NONE, "channel": NONE, "all": ("2024-01-02", 1704186000)}
    shutil.rmtree(RECORDINGS)
    assert set(oldest(recorder).values()) == {NONE}
    assert set(states(recorder).values()) == {"NVR_CAM_DISCONNECTED"}


def test_links_below_a_cameras_folder_lead_nowhere(recorder):
    outside = STORAGE / "elsewhere"
    record(outside, "10-00-00.mp4")
    record(outside, "2023-01-02/10-00-00.mp4")
    folder = add(recorder, 0, "linked")
    record(folder, "2024-01-02/index.db")
    (folder / "2024-01-01").symlink_to(outside)
    (folder / "2024-01-02/alarm").symlink_to(outside)
    (folder / "2024-01-02/11-00-00.mp4").symlink_to(outside / "10-00-00.mp4")
    (folder / "2024-01-03").symlink_to(folder)
    assert oldest(recorder) == {"linked": NONE}
    recorder.ctl("channel", "remove", "0")
    assert listed(recorder) == []


def test_what_is_no_folder_counts_as_no_recordings_and_nothing_hangs(recorder):
    for index, name in enumerate(("file", "pipe", "loop", "none")):
        add(recorder, index, name).rmdir()
    (RECORDINGS / "file").write_text("x")
    os.mkfifo(RECORDINGS / "pipe")
    (RECORDINGS / "loop").symlink_to("loop")
    folder = add(recorder, 4, "pipes inside")
    (folder / "2024-01-02").mkdir(parents=True)
    os.mkfifo(folder / "2024-01-02/10-00-00.mp4")
    os.mkfifo(folder / "2024-01-03")
    assert set(oldest(recorder).values()) == {NONE}
    assert len(listed(recorder)) == 5


def test_recordings_from_the_future_are_no_sign_of_life(recorder):
    folder = add(recorder, 0, "ahead")
    tomorrow = local(time.time() + 2 * 86400, "%Y-%m-%d", recorder.environment["TZ"])
    record(folder, tomorrow + "/10-00-00.mp4")
    assert oldest(recorder) == {"ahead": NONE}
    path = record_now(recorder, folder)
    assert states(recorder) == {"ahead": "NVR_CAM_CONNECTED"}
    os.utime(path, (time.time() + 3600,) * 2)
    assert states(recorder) == {"ahead": "NVR_CAM_DISCONNECTED"}


@pytest.mark.parametrize("zone, name, expected", [
    ("CET-1CEST,M3.5.0,M10.5.0/3", "2024-03-31/01-59-59.mp4", ("2024-03-31", 1711846799)),
    ("CET-1CEST,M3.5.0,M10.5.0/3", "2024-03-31/03-00-00.mp4", ("2024-03-31", 1711846800)),
    ("CET-1CEST,M3.5.0,M10.5.0/3", "2024-07-01/00-00-00.mp4", ("2024-07-01", 1719784800)),
    ("EST5EDT,M3.2.0,M11.1.0", "2024-03-10/03-00-00.mp4", ("2024-03-10", 1710054000)),
    ("EST5EDT,M3.2.0,M11.1.0", "2024-12-31/23-59-59.mp4", ("2024-12-31", 1735707599)),
    ("<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "2024-01-01/00-00-00.mp4",
     ("2024-01-01", 1704027600)),
    ("UTC0", "1970-01-02/00-00-00.mp4", ("1970-01-02", 86400)),
])
def test_the_oldest_recording_is_named_in_local_time_and_told_in_both(zone, name, expected):
    with Recorder(zone=zone) as recorder:
        folder = add(recorder, 0, "camera")
        record(folder, name)
        record_now(recorder, folder)
        assert oldest(recorder) == {"camera": expected}


def test_names_of_cameras_come_back_as_they_were_given(recorder):
    names = ['"quoted" \\ /', "Hof \u00fc \U0001f600", "<b>&amp;", "' OR 1=1"]
    for index, name in enumerate(names):
        add(recorder, index, name, folder=RECORDINGS / str(index))
    assert [entry["name"] for entry in listed(recorder)] == names


def test_all_128_cameras_are_listed_and_segments_behind_are_ignored(recorder):
    for index in range(128):
        add(recorder, index, f"camera {index}")
    assert [entry["channel_index"] for entry in listed(recorder)] == list(range(128))
    assert recorder.call("GET", "channel/7/x").text == recorder.call("GET", "channel").text


def test_settings_that_cannot_be_read_are_one_clear_failure(recorder):
    database = STATE / "config.db"
    aside = database.with_suffix(".aside")
    database.rename(aside)
    database.mkdir()
    try:
        assert recorder.call("GET", "channel").text == LIST_FAIL
    finally:
        database.rmdir()
        aside.rename(database)
    assert listed(recorder) == []


def full_look(recorder):
    """The list as it is without what requests before have found."""
    INDEX.unlink(missing_ok=True)
    return listed(recorder)


CHANGES = {
    "an older day": lambda old, new: record(old.parent, "2024-01-01/10-00-00.mp4"),
    "an older recording": lambda old, new: record(old, "00-00-01.mp4"),
    "an alarm recording that is older": lambda old, new: record(old, "alarm/00-00-01.mp4"),
    "an alarm folder without recordings": lambda old, new: (old / "alarm").mkdir(),
    "oldest day removed": lambda old, new: shutil.rmtree(old),
    "oldest day renamed": lambda old, new: old.rename(old.parent / "2024-01-04"),
    "oldest day put aside": lambda old, new: old.rename(old.parent / "aside"),
    "oldest day emptied": lambda old, new: (old / "10-00-00.mp4").unlink(),
    "oldest day replaced by a file": lambda old, new: (shutil.rmtree(old), old.write_text("")),
    "newest day removed": lambda old, new: shutil.rmtree(new),
    "newest alarm folder removed": lambda old, new: shutil.rmtree(new / "alarm"),
    "newest alarm folder renamed": lambda old, new: (new / "alarm").rename(new / "alarms"),
    "days exchanged": lambda old, new: (old.rename(old.parent / "x"), new.rename(old),
                                        (old.parent / "x").rename(new)),
    "a newest recording that is fresh": lambda old, new: record(new, "alarm/23-00-00.mp4"),
    "newest recording aged": lambda old, new: os.utime(new / "alarm/12-00-00.mp4", (0, 0)),
    "all days removed": lambda old, new: (shutil.rmtree(old.parent), old.parent.mkdir()),
    "folder removed": lambda old, new: shutil.rmtree(old.parent),
    "folder replaced": lambda old, new: (shutil.copytree(old.parent, old.parent.parent / "y"),
                                         shutil.rmtree(old.parent),
                                         (old.parent.parent / "y").rename(old.parent)),
}


def test_no_change_behind_the_back_of_earlier_requests_is_missed(recorder):
    """Each camera gets one change, when all that there was is known by heart."""
    folders = {}
    for index, change in enumerate(CHANGES):
        folders[change] = add(recorder, index, change, folder=RECORDINGS / str(index) / "camera")
        for name in ("2024-01-02/10-00-00.mp4", "2024-01-03/11-00-00.mp4",
                     "2024-01-05/11-00-00.mp4", "2024-01-05/alarm/12-00-00.mp4"):
            record(folders[change], name)
    time.sleep(UNTRUSTED_SECONDS)
    before = full_look(recorder)
    assert listed(recorder) == before
    assert INDEX.stat().st_size > 100 * len(CHANGES)
    for change, act in CHANGES.items():
        act(folders[change] / "2024-01-02", folders[change] / "2024-01-05")
        known = listed(recorder)
        assert known == full_look(recorder), change
        time.sleep(0.05)
    time.sleep(UNTRUSTED_SECONDS)
    listed(recorder)
    assert listed(recorder) == full_look(recorder)
    assert listed(recorder) != before


@pytest.mark.parametrize("content", [b"", b"RCLOOKS1", b"\xff" * 5000, b"\0" * 5000])
def test_a_damaged_index_is_not_believed_and_written_anew(recorder, content):
    record(add(recorder, 0, "camera"), "2024-01-02/10-00-00.mp4")
    time.sleep(UNTRUSTED_SECONDS)
    before = full_look(recorder)
    whole = INDEX.read_bytes()
    INDEX.write_bytes(content)
    assert listed(recorder) == before
    assert len(INDEX.read_bytes()) == len(whole)


def test_an_index_that_cannot_be_written_fails_no_request(recorder):
    record(add(recorder, 0, "camera"), "2024-01-02/10-00-00.mp4")
    INDEX.unlink(missing_ok=True)
    INDEX.mkdir()
    assert oldest(recorder) == {"camera": ("2024-01-02", 1704186000)}
    INDEX.rmdir()
