"""What a run removes from a share and what it leaves, and the plan that tells so beforehand."""
import json
import os
import sqlite3
from contextlib import closing

import pytest

from backup_house import FAILED, MIB, noise, tree
from event_ids import COPY_NOT_REMOVED, RETENTION_PASS, ROOM_MADE, SHARE_FULL, WILL_NOT_FIT
from places import STATE
from recorder_clock import day_name
from small_share import SmallShare
from waiting import SECONDS


def record_days(house, days, size=1000):
    for days_ago in days:
        house.record(0, days_ago, "01-00-00.mp4", noise(size, days_ago))


def copy_of(house, days_ago):
    return house.share / "recorder/Camera 0" / day_name(days_ago) / "01-00-00.mp4"


def temporary_files(house):
    return [path for path in house.shared() if ".part" in path]


def write_memory(sql, *values):
    with closing(sqlite3.connect(STATE / "backupd.db", timeout=SECONDS)) as database, database:
        database.execute(sql, values)


def keep_days(house, task_id, days):
    house.recorder.ctl("task", "set", task_id, "remoteKeepRec=true", f"remoteKeepRecDays={days}")


def told(house, event_id):
    return [detail[0] for event, detail in house.events() if event == event_id]


def test_retention_leaves_what_stands_where_a_copy_was_and_says_so_once(house):
    record_days(house, range(6))
    task_id = house.create()
    house.run(task_id)
    house.run(task_id)  # reads the copies back, which no run does once more
    copy_of(house, 5).write_bytes(b"longer than it was: " + noise(1000, "foreign"))
    copy_of(house, 4).write_bytes(noise(1000, "of the same size"))
    os.utime(copy_of(house, 4), (1_000_000_000, 1_000_000_000))
    keep_days(house, task_id, 2)
    house.run(task_id)
    assert [copy_of(house, days_ago).exists() for days_ago in range(6)] == [
        True, True, True, False, True, True]
    assert copy_of(house, 4).read_bytes() == noise(1000, "of the same size")
    assert sorted(told(house, COPY_NOT_REMOVED)) == [
        f"Camera 0/{day_name(5)}/01-00-00.mp4 is not as it was copied, and stays",
        f"Camera 0/{day_name(4)}/01-00-00.mp4 is not as it was copied, and stays"]
    house.run(task_id)
    assert len(told(house, COPY_NOT_REMOVED)) == 2
    assert copy_of(house, 4).exists() and copy_of(house, 5).exists()


def test_descriptions_go_with_their_copies_and_foreign_ones_stay(house):
    record_days(house, range(6))
    task_id = house.create(recordingFormat="ostra")
    house.run(task_id)
    foreign = copy_of(house, 5).with_suffix(".mp4.json")
    foreign.write_text("{}")
    keep_days(house, task_id, 3)
    house.run(task_id)
    assert not copy_of(house, 5).exists() and foreign.read_text() == "{}"
    assert not copy_of(house, 4).parent.exists()
    assert "description" in told(house, COPY_NOT_REMOVED)[0]


def test_clock_years_ahead_removes_nothing_until_it_is_set_right(house):
    record_days(house, range(6))
    task_id = house.create()
    house.run(task_id)
    keep_days(house, task_id, 2)
    # As it is when the clock has jumped: the last run's date is years before today's.
    write_memory("UPDATE task_date SET trusted_day = '2020-01-01'")
    before = house.shared()
    house.run(task_id)
    assert house.shared() == before
    words = told(house, RETENTION_PASS)[0]
    assert words.startswith("0 files of days before ")
    assert "is doubted" in words and "2020-01-01" in words and "set the clock" in words
    write_memory("UPDATE task_date SET trusted_day = ?", day_name(1))
    house.run(task_id)
    assert not copy_of(house, 3).exists() and copy_of(house, 2).exists()


def test_clock_that_is_years_ahead_of_all_recordings_removes_nothing(house):
    """As a recorder sees it whose clock has jumped, and who has only older recordings."""
    record_days(house, range(2000, 2004))
    task_id = house.create()
    house.recorder.ctl("task", "set", task_id, "backupDays=3000")
    house.run(task_id)
    before = house.shared()
    assert len(before) == 4
    keep_days(house, task_id, 30)
    for number in range(1, 4):
        house.run(task_id)
        assert house.shared() == before
        passes = told(house, RETENTION_PASS)
        assert len(passes) == number
        assert passes[0].startswith("0 files of days before ") and "is doubted" in passes[0]
        assert day_name(2000) in passes[0] and "set the clock" in passes[0]


def test_newest_day_of_a_camera_that_records_no_more_stays(house):
    record_days(house, [20, 21])
    house.record(1, 0, "01-00-00.mp4", b"the other camera's")
    task_id = house.create()
    house.run(task_id)
    keep_days(house, task_id, 2)
    house.run(task_id)
    assert copy_of(house, 20).exists() and not copy_of(house, 21).exists()


@pytest.fixture
def small(tmp_path):
    with SmallShare(tmp_path, channels=1) as house:
        yield house


def test_nothing_goes_for_a_file_that_can_never_fit_and_others_are_copied(small):
    record_days(small, [3, 2], 4 * MIB)
    task_id = small.create(remoteOverwriteType="overwrite")
    small.run(task_id)
    small.record(0, 1, "01-00-00.mp4", noise(60 * MIB, "large"))
    small.record(0, 0, "01-00-00.mp4", noise(2 * MIB, "small"))
    small.run(task_id, FAILED)
    assert [copy_of(small, days_ago).exists() for days_ago in (3, 2, 1, 0)] == [
        True, True, False, True]
    assert temporary_files(small) == []
    assert small.database("SELECT * FROM checkpoint") == []
    words = small.progress(task_id)[0]["message"]
    assert "could be removed" in words and day_name(1) in words
    assert told(small, ROOM_MADE) == []
    assert len(told(small, WILL_NOT_FIT)) == 1


def test_full_share_is_left_without_temporary_files(small):
    record_days(small, range(4), 16 * MIB)
    task_id = small.create()
    small.run(task_id, FAILED)
    assert temporary_files(small) == []
    assert small.database("SELECT * FROM checkpoint") == []
    assert told(small, SHARE_FULL)
    assert small.progress(task_id)[0]["message"].startswith("the share is full: ")
    small.check_records()
    assert len(small.copied()) == 2, "what had room was copied"


def test_share_that_keeps_what_is_deleted_loses_one_day_and_no_more(small):
    record_days(small, [4, 3, 2], 8 * MIB)
    task_id = small.create(remoteOverwriteType="overwrite")
    small.run(task_id)
    for days_ago in (4, 3, 2):
        os.link(copy_of(small, days_ago), small.share / f"kept-{days_ago}")
    small.record(0, 1, "01-00-00.mp4", noise(24 * MIB, "new"))
    small.run(task_id, FAILED)
    assert [copy_of(small, days_ago).exists() for days_ago in (4, 3, 2, 1)] == [
        False, True, True, False]
    assert len(told(small, ROOM_MADE)) == 1
    assert "does it keep what is deleted?" in small.progress(task_id)[0]["message"]
    assert temporary_files(small) == []


def test_removal_that_a_kill_interrupted_is_completed_and_nothing_is_sent_again(small):
    record_days(small, range(3), 8 * MIB)
    task_id = small.create(remoteOverwriteType="overwrite")
    small.run(task_id)
    copy_of(small, 2).unlink()
    write_memory("UPDATE copied_file SET removed = 2 WHERE day IN (?, ?)", day_name(2),
                 day_name(1))
    small.run(task_id)
    assert not copy_of(small, 1).exists() and copy_of(small, 0).exists()
    assert [row["removed"] for row in small.database("SELECT * FROM copied_file ORDER BY day")] \
        == [1, 1, 0]
    small.run(task_id)
    assert not copy_of(small, 1).exists(), "what made room came back"


# --- the plan -------------------------------------------------------------------------------------

def plan_of(house, task_id):
    return json.loads(house.recorder.ctl("backup", "plan", str(task_id), "--json"))


def contents(folder):
    """Every file's hash, but those of SQLite's shared memory, which holds locks and no content."""
    return {path: digest for path, digest in tree(folder).items() if not path.endswith("-shm")}


def test_plan_tells_what_the_next_run_does_and_writes_nothing(house):
    record_days(house, range(6), MIB)
    house.record(1, 1, "02-00-00.mp4", noise(5000, "alarm"), alarm=True)
    task_id = house.create(remoteKeepRec=True, remoteKeepRecDays=10)
    house.run(task_id)
    keep_days(house, task_id, 3)
    house.record(0, 0, "03-00-00.mp4", noise(3 * MIB + 7, "new"))
    house.record(1, 2, "03-00-00.mp4", noise(77, "new"))
    copy_of(house, 2).unlink()  # has to be sent again, which only the share can tell
    folders = sorted(path for path in house.share.rglob("*") if path.is_dir())
    before = contents(STATE), tree(house.share)
    plan = plan_of(house, task_id)
    assert (contents(STATE), tree(house.share)) == before
    assert sorted(path for path in house.share.rglob("*") if path.is_dir()) == folders
    assert plan["free_bytes"] > 0 and plan["fits"] is True
    assert (plan["cameras"], plan["days"]) == (2, 2)
    assert (plan["first_day"], plan["last_day"]) == (day_name(2), day_name(0))
    copied = house.copied()
    house.run(task_id)
    figures = house.progress(task_id)[0]
    assert (plan["files"], plan["bytes"]) == (figures["files_done"], figures["bytes_done"])
    assert plan["bytes"] == 4 * MIB + 7 + 77
    gone = [row for path, row in copied.items() if path not in house.copied()]
    assert plan["remove_files"] == len(gone) == 2
    assert plan["remove_bytes"] == sum(row["size"] for row in gone)
    again = plan_of(house, task_id)
    assert (again["files"], again["remove_files"]) == (0, 0)
    assert "to copy\t0 files\t0 bytes\n" in house.recorder.ctl("backup", "plan", str(task_id))


def test_plan_sees_that_a_run_will_not_fit(small):
    record_days(small, [1, 0], 30 * MIB)
    plan = plan_of(small, small.create())
    assert plan["bytes"] == 60 * MIB and plan["fits"] is False
    assert 0 < plan["free_bytes"] <= plan["total_bytes"] == 40 * MIB
    assert not (small.share / "recorder").exists()


def test_plan_of_what_cannot_be_fails_with_one_line(house):
    task_id = house.create(password="wrong")
    for task, words in [(str(task_id), "refuses user"), ("99", "there is no task 99")]:
        assert words in house.recorder.refusal("recorderctl", "backup", "plan", task)
