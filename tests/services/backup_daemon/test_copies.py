"""What is copied, when again, and what is removed: selection, formats, growing files, retention."""
import hashlib
import json
import sqlite3
import time

from backup_house import (CANCEL, FAILED, MIB, PREPARE_START, RUNNING, SUCCESS, WAIT,
                          noise, tree)
from event_ids import RETENTION_PASS, RUN_FAILED, RUN_STARTED
from fault_proxy import CRAWL, FaultProxy
from places import STATE
from recorder_clock import FAR_HOUR, day_name
from waiting import SECONDS, wait_until


def names(house):
    return sorted(house.shared())


def test_last_days_and_kinds_are_selected(house):
    for days_ago in range(4):
        house.record(0, days_ago, "01-00-00.mp4", b"normal")
        house.record(0, days_ago, "02-00-00.mp4", b"alarm", alarm=True)
    house.run(house.create(backupDays=1, recordingType="alarm"))
    assert names(house) == [f"Camera 0/{day_name(day)}/alarm/02-00-00.mp4" for day in (1, 0)]
    house.run(house.create(backupDays=0, recordingType="recording"))
    assert f"Camera 0/{day_name(0)}/01-00-00.mp4" in names(house)
    assert len(names(house)) == 3


def test_day_range_and_channels_are_selected(house):
    for channel in range(3):
        for days_ago in range(5):
            house.record(channel, days_ago, "01-00-00.mp4", b"content")
    now = int(time.time())
    house.run(house.create(backupType="BackupByTimeRange", chIdxList=[0, 2],
                           backupStartDay=now - 3 * 86400, backupEndDay=now - 2 * 86400))
    assert names(house) == sorted(f"Camera {channel}/{day_name(day)}/01-00-00.mp4"
                                  for channel in (0, 2) for day in (3, 2))


def test_channel_names_are_made_safe_for_smb_and_stay_apart(house):
    for number, name in ((3, 'Door: "left"/\\<1>?*|'), (4, "Hof."), (5, "hof."), (6, "CON")):
        house.add_channel(number, name)
        house.record(number, 0, "01-00-00.mp4", name.encode())
    house.run(house.create(chIdxList=[3, 4, 5, 6]))
    folders = sorted({path.split("/")[0] for path in names(house)})
    assert folders == ["CON_", "Door_ _left____1____", "Hof_", "hof_ guid-5"]
    assert len(names(house)) == 4


def test_missing_channel_fails_the_run_and_the_others_are_copied(house):
    house.record(1, 0, "01-00-00.mp4", b"content")
    house.run(house.create(chIdxList=[1, 77]), FAILED)
    assert house.shared() == house.sources()
    assert "there is no channel 77" in house.last_event(RUN_FAILED)[0]


def test_second_run_sends_nothing_and_mends_what_the_share_lost(house):
    for number in range(3):
        house.record(0, 0, f"0{number}-00-00.mp4", noise(MIB, number))
    with FaultProxy(house.samba.port) as proxy:
        task_id = house.create(port=proxy.port)
        house.run(task_id)
        sent = proxy.sent
        house.run(task_id)
        assert proxy.sent < sent + MIB // 2
        lost = house.share / "recorder/Camera 0" / day_name(0) / "01-00-00.mp4"
        lost.unlink()
        house.run(task_id)
        assert house.shared() == house.sources()


def test_growing_file_is_copied_as_it_is_and_completed_by_the_next_run(house):
    path = house.record(0, 0, "01-00-00.mp4", noise(MIB, "first"))
    task_id = house.create()
    house.run(task_id)
    assert house.shared() == house.sources()
    with open(path, "ab") as file:
        file.write(noise(MIB, "second"))
    house.run(task_id)
    assert house.shared() == house.sources()
    house.check_records()


def test_file_that_grows_while_it_is_copied_never_spoils_the_copy(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.crawl_after(MIB)
        path = house.record(0, 0, "01-00-00.mp4", noise(40 * MIB, "first"))
        first = hashlib.sha256(path.read_bytes()).hexdigest()
        task_id = house.create(port=proxy.port)
        house.force(task_id)
        wait_until(proxy.crawls, "the start")
        with open(path, "ab") as file:
            file.write(noise(MIB, "second"))
        proxy.rate = None
        house.wait_for_end(task_id)
        assert list(house.shared().values()) == [first]
        house.check_records()
        house.run(task_id)
        assert house.shared() == house.sources()


def test_format_ostra_describes_every_copy(house):
    content = noise(MIB + 3, "described")
    house.record(1, 0, "01-02-03.mp4", content)
    house.run(house.create(recordingFormat="ostra"))
    folder = house.share / "recorder/Camera 1" / day_name(0)
    assert sorted(path.name for path in folder.iterdir()) == ["01-02-03.mp4", "01-02-03.mp4.json"]
    described = json.loads((folder / "01-02-03.mp4.json").read_text())
    assert described["channel"] == 1 and described["guid"] == "guid-1"
    assert described["length"] == len(content)
    assert described["sha256"] == hashlib.sha256(content).hexdigest()
    assert described["start"] % 60 == 3


def test_retention_removes_old_copies_of_ours_and_nothing_else(house):
    for days_ago in range(6):
        house.record(0, days_ago, "01-00-00.mp4", noise(1000, days_ago))
        house.record(0, days_ago, "02-00-00.mp4", noise(1000, days_ago), alarm=True)
    house.run(house.create())
    foreign = house.share / "recorder/Camera 0" / day_name(5) / "foreign.mp4"
    foreign.write_bytes(b"not ours")
    keeper = house.create(remoteKeepRec=True, remoteKeepRecDays=2)
    house.run(keeper)
    assert len(house.copied()) == 12, "another task's copies are not this one's to remove"
    first = house.recorder.stored_tasks()[0]["taskID"]
    house.recorder.ctl("task", "set", first, "remoteKeepRec=true", "remoteKeepRecDays=2")
    house.run(first)
    days = {path.split("/")[1] for path in names(house)}
    assert days == {day_name(0), day_name(1), day_name(2), day_name(5)}
    assert foreign.read_bytes() == b"not ours"
    assert len(names(house)) == 7
    assert not (house.share / "recorder/Camera 0" / day_name(4)).exists()
    assert RETENTION_PASS in [event for event, _ in house.events()]
    house.check_records()


def test_two_tasks_run_in_parallel_and_a_third_waits(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.rate = CRAWL
        for channel in range(3):
            house.record(channel, 0, "01-00-00.mp4", noise(40 * MIB, channel))
        tasks = [house.create(port=proxy.port, chIdxList=[channel]) for channel in range(3)]
        house.force(tasks[0])
        house.wait_for(tasks[0], RUNNING)
        house.force(tasks[1], stop=False, parallel=True)
        house.wait_for(tasks[1], RUNNING)
        house.force(tasks[2], stop=False, parallel=True)
        assert house.status(tasks[2]) == WAIT
        assert [task["sequence"] for task in house.recorder.list_tasks()] == [-1, -1, 0]
        proxy.rate = None
        for task_id in tasks:
            house.wait_for_end(task_id)
            assert house.status(task_id) == SUCCESS
        assert house.shared() == house.sources()


def test_forced_task_takes_the_place_of_the_running_one(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.rate = CRAWL
        for channel in range(2):
            house.record(channel, 0, "01-00-00.mp4", noise(40 * MIB, channel))
        first, second = (house.create(port=proxy.port, chIdxList=[channel])
                         for channel in range(2))
        house.force(first)
        house.wait_for(first, RUNNING)
        assert house.activate(second)["has_running_task"] is True
        house.force(second)
        house.wait_for(first, CANCEL)
        house.wait_for(second, PREPARE_START, RUNNING, SUCCESS)
        proxy.rate = None
        house.wait_for_end(second)
        house.run(first)
        assert house.shared() == house.sources()
        assert house.stored(first)["endTime"] >= house.stored(first)["startTime"] != ""


def set_due(house, task_id, due):
    connection = sqlite3.connect(STATE / "backupd.db", timeout=SECONDS)
    with connection:
        connection.execute("UPDATE next_run SET due = ? WHERE taskID = ?", (due, task_id))
    connection.close()


def next_run(house, task_id):
    rows = house.database("SELECT due FROM next_run WHERE taskID = ?", task_id)
    return rows[0]["due"] if rows else None


def test_schedule_makes_up_a_missed_run_once_and_not_for_a_disabled_task(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(scheduleHour=FAR_HOUR)
    wait_until(lambda: next_run(house, task_id), "the schedule")
    set_due(house, task_id, int(time.time()) - 3 * 86400)
    house.wait_for_end(task_id)
    assert house.status(task_id) == SUCCESS
    assert house.shared() == house.sources()
    assert next_run(house, task_id) > time.time()
    assert [event for event, _ in house.events()].count(RUN_STARTED) == 1
    reply = house.recorder.call("POST", f"task/{task_id}/is_enable", {"is_enable": False})
    assert reply.json["ret_code"] == 0
    wait_until(lambda: next_run(house, task_id) is None, "the schedule's end")


def test_without_the_checking_read_copies_are_the_same(house):
    house.recorder.ctl("config", "set", "backup", "check_reading", "0")
    house.record(0, 0, "01-00-00.mp4", noise(20 * MIB, "unchecked"))
    house.run(house.create())
    assert house.shared() == house.sources()
    assert tree(house.share) and list(house.copied().values())[0]["sha256"] == ""
