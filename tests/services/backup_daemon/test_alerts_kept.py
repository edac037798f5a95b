"""Which alerts a whole recorder keeps: one for each beginning and each end of a problem."""
import random
import sqlite3
import time

import pytest

from alert_kills import NOBODY, AlertScene, alerts, open_problems
from backup_house import FAILED, MIB, House, noise
from event_ids import COPY_SPOILT
from places import STATE
from recorder_clock import FAR_HOUR, day_name
from service_process import end
from small_share import SmallShare
from waiting import SECONDS, wait_until

KILLS = 20
DAY = 86400


def listen(house):
    house.recorder.ctl("config", "set", "--force", "alert", "web_hook", NOBODY)


def told(house):
    return [(alert["event"], alert["problem"]) for alert in alerts(house)]


def wait_for_alerts(house, *wanted):
    wait_until(lambda: told(house) == list(wanted), f"{wanted}, not {told(house)}")


def restart(house):
    house.recorder.kill_service("recording-backupd")
    return house.recorder.start_service("recording-backupd")


def write(sql, *values):
    connection = sqlite3.connect(STATE / "backupd.db", timeout=SECONDS)
    with connection:
        connection.execute(sql, values)
    connection.close()


def test_task_that_fails_again_and_again_is_told_once_and_when_it_succeeds(house):
    listen(house)
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(destPath="/nowhere/recorder")
    house.recorder.ctl("task", "set", task_id, "taskName=Door\nBcc: x")
    for _ in range(3):
        house.run(task_id, FAILED)
    daemon = restart(house)
    house.run(task_id, FAILED)
    wait_for_alerts(house, ("raised", "run_failed"))
    alert, = alerts(house)
    assert alert["task"] == {"id": task_id, "name": "Door\nBcc: x"}
    assert alert["subject"].endswith(f': task {task_id} "Door\\nBcc: x": its run 1 failed')
    assert "there is no such share" in alert["text"] and alert["last_success"] is None
    assert "smbclient -L" in alert["what_to_do"]
    assert house.samba.password not in str(house.database("SELECT * FROM alert"))
    assert alert["since"]["seconds"] == house.database("SELECT ended FROM run")[0]["ended"]
    house.recorder.ctl("task", "set", task_id, "destPath=/backup/recorder")
    house.run(task_id)
    wait_for_alerts(house, ("raised", "run_failed"), ("resolved", "run_failed"))
    assert alerts(house)[1]["last_success"]["seconds"] >= alert["time"]["seconds"]
    assert end(daemon) == 0
    assert not open_problems(house)


def test_reminder_comes_a_day_later_and_no_other(house):
    listen(house)
    task_id = house.create(destPath="/nowhere/recorder")
    house.run(task_id, FAILED)
    wait_for_alerts(house, ("raised", "run_failed"))
    write("UPDATE problem SET told = told - ?", DAY)
    wait_for_alerts(house, ("raised", "run_failed"), ("reminder", "run_failed"))
    daemon = restart(house)
    house.run(task_id, FAILED)
    assert len(alerts(house)) == 2
    assert end(daemon) == 0


def test_problems_that_are_open_are_told_when_somebody_is_to_be_told(house):
    task_id = house.create(destPath="/nowhere/recorder")
    house.run(task_id, FAILED)
    wait_until(lambda: open_problems(house), "the problem")
    assert told(house) == []
    listen(house)
    wait_for_alerts(house, ("raised", "run_failed"))


def test_task_that_is_overdue_is_told_and_that_it_has_succeeded(house):
    listen(house)
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(scheduleHour=FAR_HOUR)
    house.run(task_id)
    house.wait_until_success_counts(task_id)
    long_ago = int(time.time()) - 2 * DAY
    write("UPDATE task_health SET success_time = ?1, first_due = ?1", long_ago)
    write("UPDATE run SET ended = ?", long_ago)
    wait_for_alerts(house, ("raised", "overdue"))
    house.run(task_id)
    wait_for_alerts(house, ("raised", "overdue"), ("resolved", "overdue"))


def test_deleted_tasks_problem_goes_without_a_word(house):
    listen(house)
    task_id = house.create(destPath="/nowhere/recorder")
    house.run(task_id, FAILED)
    wait_for_alerts(house, ("raised", "run_failed"))
    assert house.recorder.call("DELETE", f"task/{task_id}?isStop=0").json["ret_code"] == 0
    wait_until(lambda: not open_problems(house), "the end of the problem")
    assert told(house) == [("raised", "run_failed")]


def test_copies_that_differ_are_told_and_that_the_next_sample_finds_nothing(house):
    listen(house)
    recording = house.record(0, 1, "01-00-00.mp4", noise(1000, "yesterday"))
    task_id = house.create()
    house.run(task_id)
    (house.share / "recorder/Camera 0" / day_name(1) / recording.name).unlink()
    house.run(task_id)
    assert house.last_event(COPY_SPOILT)
    wait_for_alerts(house, ("raised", "copies_differ"))
    assert f"Camera 0/{day_name(1)}/{recording.name}" in alerts(house)[0]["text"]
    house.run(task_id)
    wait_for_alerts(house, ("raised", "copies_differ"), ("resolved", "copies_differ"))


@pytest.fixture
def small(tmp_path):
    with SmallShare(tmp_path, channels=1) as house:
        yield house


def test_share_that_is_nearly_full_is_told_and_that_it_has_room_again(small):
    listen(small)
    small.record(0, 1, "01-00-00.mp4", noise(20 * MIB, 1))
    task_id = small.create()
    small.run(task_id)
    wait_until(lambda: small.database("SELECT 1 FROM share_room WHERE free > 0"), "the room")
    assert told(small) == []
    small.record(0, 0, "01-00-00.mp4", noise(19 * MIB, 2))
    small.run(task_id)
    wait_for_alerts(small, ("raised", "share_nearly_full"))
    alert, = alerts(small)
    assert alert["destination"] == f"//127.0.0.1:{small.samba.port}/backup"
    assert [task["id"] for task in alert["tasks"]] == [task_id] and alert["task"] is None
    small.run(task_id)
    small.resize(80)
    small.run(task_id)
    wait_for_alerts(small, ("raised", "share_nearly_full"), ("resolved", "share_nearly_full"))


def test_killed_at_any_moment_the_daemon_loses_and_doubles_no_alert(tmp_path):
    with House(tmp_path, channels=1) as house:
        scene = AlertScene(house, random.Random(20240301))
        scene.live_and_be_killed(KILLS)
        scene.check_the_end()
