"""A server that forgets what it had: the next run finds it in a sample of its copies, and tells."""
import os

from backup_house import FAILED, MIB, SUCCESS, noise
from event_ids import COPY_SPOILT, FILE_NOT_COPIED
from places import STORAGE
from recorder_clock import day_name

NAME = "01-00-00.mp4"


def path_of(days_ago):
    return f"Camera 0/{day_name(days_ago)}/{NAME}"


def copy_of(house, days_ago):
    return house.share / "recorder" / path_of(days_ago)


def forget(house, days_ago):
    """As a file system does that had its sizes and times on disk, and no content."""
    copy = copy_of(house, days_ago)
    before = copy.stat()
    with copy.open("r+b") as file:
        file.write(bytes(before.st_size))
    os.utime(copy, ns=(before.st_atime_ns, before.st_mtime_ns))


def told(house, event_id):
    return [detail[0] for event, detail in house.events() if event == event_id]


def record_days(house, days):
    for days_ago in days:
        house.record(0, days_ago, NAME, noise(3 * MIB + 7, days_ago))


def test_copy_that_the_server_has_forgotten_is_told_and_made_anew(house):
    record_days(house, range(3))
    task_id = house.create()
    house.run(task_id)
    forget(house, 1)
    house.run(task_id)
    assert told(house, COPY_SPOILT) == [
        f"{path_of(1)} has another content than it was made with"]
    assert house.shared() == house.sources()
    figures = house.progress(task_id)[0]
    assert (figures["files_done"], figures["files_failed"], figures["percent"]) == (1, 0, 100)
    house.run(task_id)
    assert len(told(house, COPY_SPOILT)) == 1
    assert {row["sampled"] for row in house.copied().values()} == {1}


def test_without_a_hash_copies_are_compared_with_their_recordings(house):
    house.recorder.ctl("config", "set", "backup", "check_reading", "0")
    record_days(house, range(2))
    task_id = house.create()
    house.run(task_id)
    assert {row["sha256"] for row in house.copied().values()} == {""}
    forget(house, 0)
    house.run(task_id)
    assert len(told(house, COPY_SPOILT)) == 1
    assert house.shared() == house.sources()


def test_forgotten_copy_without_its_recording_fails_one_run_which_removes_nothing(house):
    record_days(house, range(4))
    task_id = house.create()
    house.run(task_id)
    forget(house, 1)
    copy_of(house, 2).unlink()
    for days_ago in (1, 2):
        (STORAGE / "0" / day_name(days_ago) / NAME).unlink()
    house.recorder.ctl("task", "set", task_id, "remoteKeepRec=true", "remoteKeepRecDays=2")
    house.run(task_id, FAILED)
    assert sorted(told(house, COPY_SPOILT)) == sorted([
        f"{path_of(1)} has another content than it was made with",
        f"{path_of(2)} is not there any more"])
    assert len(told(house, FILE_NOT_COPIED)) == 2
    assert house.progress(task_id)[0]["files_failed"] == 2
    assert copy_of(house, 3).exists()
    house.run(task_id)
    assert len(told(house, COPY_SPOILT)) == 2, "it is told once"
    assert not copy_of(house, 3).exists()


def test_file_that_somebody_has_put_in_the_place_of_a_copy_is_told_and_stays(house):
    record_days(house, range(2))
    task_id = house.create()
    house.run(task_id)
    foreign = noise(3 * MIB + 7, "foreign")
    copy_of(house, 1).write_bytes(foreign)
    os.utime(copy_of(house, 1), (1_000_000_000, 1_000_000_000))
    house.run(task_id, FAILED)
    assert told(house, COPY_SPOILT) == [
        f"{path_of(1)} has another content than it was made with"]
    assert copy_of(house, 1).read_bytes() == foreign
    assert house.progress(task_id)[0]["files_failed"] == 1


# --- all copies, when somebody asks for it --------------------------------------------------------

def recheck(house, *whose):
    return house.recorder.ctl("backup", "recheck", *whose)


def test_copies_that_are_asked_about_are_compared_and_only_what_differs_is_made_anew(house):
    record_days(house, range(4))
    task_id = house.create()
    house.run(task_id)
    house.run(task_id)  # the sample of what the first one has copied
    forget(house, 2)
    before = copy_of(house, 1).stat()
    house.run(task_id)
    assert house.shared() != house.sources(), "no sample is taken of it any more"
    assert recheck(house, task_id) == (
        "4 copies will be compared with their recordings by the next runs\n")
    house.run(task_id)
    assert house.shared() == house.sources()
    after = copy_of(house, 1).stat()
    assert (after.st_ino, after.st_mtime_ns) == (before.st_ino, before.st_mtime_ns)
    assert {row["sampled"] for row in house.copied().values()} <= {0, 1}


def test_copies_of_other_tasks_are_left_unless_all_are_asked_about(house):
    record_days(house, range(2))
    first = house.create()
    house.run(first)
    second = house.create(destPath="/backup/other")
    house.run(second)
    assert recheck(house, second).startswith("2 copies ")
    doubted = house.database("SELECT * FROM copied_file WHERE sampled = 3")
    assert [row["taskID"] for row in doubted] == [int(second)] * 2
    assert recheck(house).startswith("4 copies ")


def test_copies_may_be_asked_about_while_a_run_goes_on(house):
    record_days(house, range(8))
    task_id = house.create()
    house.force(task_id)
    asked = 0
    while house.status(task_id) not in (SUCCESS, FAILED):
        recheck(house)
        asked += 1
    assert asked > 0
    assert house.status(task_id) == SUCCESS
    house.run(task_id)
    assert house.shared() == house.sources()
    assert {row["sampled"] for row in house.copied().values()} <= {0, 1}


def test_recording_that_has_gone_bad_costs_no_copy_and_one_that_was_written_anew_is_copied(house):
    record_days(house, range(2))
    task_id = house.create()
    house.run(task_id)
    recheck(house)
    for days_ago in range(2):
        recording = STORAGE / "0" / day_name(days_ago) / NAME
        before = recording.stat()
        recording.write_bytes(noise(3 * MIB + 7, f"other {days_ago}"))
        os.utime(recording, ns=(before.st_atime_ns, before.st_mtime_ns + days_ago))
    house.run(task_id, FAILED)
    assert told(house, FILE_NOT_COPIED) == [
        f"recorder/{path_of(0)}: the copy is as it was made and stays, but its recording has "
        "another content now"]
    assert copy_of(house, 0).read_bytes() == noise(3 * MIB + 7, 0)
    assert copy_of(house, 1).read_bytes() == noise(3 * MIB + 7, "other 1")
