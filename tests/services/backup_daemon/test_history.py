"""What the history tells of runs, and whether recorderctl status is right about the recordings."""
import random
import re
import sqlite3
import time

from backup_house import FAILED, MIB, RUNNING, House, noise
from fault_proxy import CRAWL, FaultProxy
from places import STATE
from recorder_clock import FAR_HOUR, NOON, clock_second, local
from run_kills import KillScene
from service_process import end
from waiting import wait_until

DAY = 86400
ZONED = re.compile(r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4}")

KILLS = 20


def write(house, sql, *values):
    connection = sqlite3.connect(STATE / "backupd.db", timeout=30)
    with connection:
        connection.execute(sql, values)
    connection.close()


def create_scheduled(house, **changes):
    """A task that comes due in half a day, and that the daemon has looked at."""
    task_id = house.create(scheduleHour=FAR_HOUR, **changes)
    wait_until(lambda: house.database("SELECT * FROM next_run NATURAL JOIN task_health "
                                      "WHERE taskID = ?", task_id), "the schedule")
    return task_id


def newest(house, task_id):
    return house.recorder.runs(task_id)[0]


def shown(house, *words):
    """recorderctl run show, as the rows' first columns and the rest."""
    rows = [line.split("\t") for line in house.recorder.ctl("run", "show", *words).splitlines()]
    return {row[0]: row[1:] for row in rows}


def wait_for_outcome(house, task_id, number):
    """A run's row is closed right behind the task's own state."""
    wait_until(lambda: newest(house, task_id)["number"] == number
               and newest(house, task_id)["outcome"] != "running", "the end in the history")
    return newest(house, task_id)


def test_success_has_a_row_with_all_that_was_done(house):
    for number in range(3):
        house.record(0, 0, f"0{number}-00-00.mp4", noise(MIB, number))
    began = clock_second()
    task_id = create_scheduled(house)
    house.recorder.ctl("task", "set", task_id, "taskName=Door\x1b[2Jway")
    house.run(task_id)
    run = wait_for_outcome(house, task_id, 1)
    assert began <= run["started"] <= run["ended"] <= time.time()
    assert run["rate"] > 0
    assert {name: run[name] for name in run if name not in ("started", "ended", "rate")} == {
        "taskID": task_id, "number": 1, "name": "Door\x1b[2Jway", "cause": "by hand",
        "outcome": "success", "reason": "", "files_planned": 3, "bytes_planned": 3 * MIB,
        "files_sent": 3, "bytes_sent": 3 * MIB, "files_kept": 0, "bytes_kept": 0,
        "files_failed": 0, "bytes_failed": 0, "files_removed": 0, "bytes_removed": 0}
    house.run(task_id)
    second = wait_for_outcome(house, task_id, 2)
    assert (second["files_planned"], second["files_sent"], second["files_kept"],
            second["bytes_kept"]) == (0, 0, 3, 3 * MIB)
    words = shown(house, task_id, "1")
    assert words["task"] == [task_id, "Door\\x1B[2Jway"]
    assert ZONED.fullmatch(words["started"][0]) and words["started"][1] == "by hand"
    assert words["sent"] == ["3 files", f"{3 * MIB} bytes"]
    code, status = house.recorder.backup_status()
    assert (code, status["needs_attention"], status["problems"]) == (0, False, [])
    assert status["headline"].startswith("SAFE: the task has succeeded, at ")
    text = house.recorder.ctl("status")
    assert text.startswith(status["headline"]) and "\x1b" not in text
    assert local(time.time(), "%z", NOON) in text.splitlines()[-1]


def test_success_stands_for_the_task_as_it_was_alone(house):
    house.record(0, 0, "01-00-00.mp4", noise(1000, "door"))
    task_id = create_scheduled(house)

    def notes_and_word():
        told = house.recorder.backup_status()[1]
        notes = [text.partition(" (")[0] for text in told["tasks"][0]["notes"]]
        return notes, told["headline"].partition(":")[0]

    for number, change in enumerate((
            lambda: house.recorder.ctl("task", "set", task_id, "destPath=/backup/elsewhere"),
            lambda: house.recorder.call("POST", f"task/{task_id}",
                                        house.settings(backupDays=31, scheduleHour=FAR_HOUR)))):
        house.run(task_id)
        wait_for_outcome(house, task_id, number + 1)
        before = notes_and_word()
        change()
        assert before == ([], "SAFE")
        assert notes_and_word() == (["it was changed since its last success"], "NOT YET SAFE")


def test_success_of_cameras_that_record_nothing_yet_is_one_until_there_were_recordings(house):
    task_id = create_scheduled(house)
    recording = None
    for number, problems in enumerate((
            [], [], ["its last success found no recordings, unlike those before"])):
        if number == 1:
            recording = house.record(0, 0, "01-00-00.mp4", b"content")
        elif recording:
            recording.unlink()
        house.run(task_id)
        wait_for_outcome(house, task_id, number + 1)
        task, = house.recorder.backup_status()[1]["tasks"]
        assert (task["problems"], task["notes"]) == (problems, []), number


def test_task_that_no_schedule_starts_needs_attention(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create()
    house.run(task_id)
    wait_for_outcome(house, task_id, 1)
    wait_until(lambda: house.recorder.backup_status()[1]["tasks"][0]["problems"] == [
        "no schedule ever starts it"], "the daemon's look at it")
    house.recorder.ctl("task", "set", task_id, f"scheduleHour={FAR_HOUR}")
    wait_until(lambda: house.recorder.backup_status()[0] == 0, "the schedule")


def test_copies_that_retention_removes_are_counted(house):
    for days_ago in (0, 1, 9):
        house.record(0, days_ago, "01-00-00.mp4", noise(1000, days_ago))
    task_id = house.create()
    house.run(task_id)
    house.recorder.ctl("task", "set", task_id, "remoteKeepRec=true", "remoteKeepRecDays=3")
    house.run(task_id)
    run = wait_for_outcome(house, task_id, 2)
    assert (run["files_removed"], run["bytes_removed"], run["files_kept"]) == (1, 1000, 2)


def test_failed_run_names_its_files_and_needs_attention(house):
    house.record(0, 0, "01-00-00.mp4", noise(1000, "good"))
    bad = house.record(0, 0, "02-00-00.mp4", noise(2000, "bad"))
    task_id = create_scheduled(house)
    there = house.share / "recorder/Camera 0" / bad.parent.name / bad.name
    there.parent.mkdir(parents=True)
    there.write_bytes(b"somebody else's")
    house.run(task_id, FAILED)
    run = wait_for_outcome(house, task_id, 1)
    assert (run["outcome"], run["files_sent"], run["files_failed"], run["bytes_failed"]) == (
        "failed", 1, 1, 2000)
    assert run["files_planned"] == 2
    assert "1 of 2 files could not be copied" in run["reason"]
    detailed, = house.recorder.ctl_json("run", "show", task_id)
    file = f"Camera 0/{bad.parent.name}/{bad.name}"
    assert [failed["file"] for failed in detailed["failures"]] == [file]
    assert file in detailed["failures"][0]["reason"]
    code, status = house.recorder.backup_status()
    assert (code, status["needs_attention"]) == (1, True)
    assert status["headline"].startswith("ATTENTION: ")
    assert "its run 1 failed" in status["tasks"][0]["problems"][0]
    done = house.recorder.run("recorderctl", "status")
    assert done.returncode == 1
    assert done.stderr == "recorderctl: the backups need attention\n"
    assert run["reason"] in done.stdout
    there.unlink()
    house.run(task_id)
    wait_for_outcome(house, task_id, 2)
    assert house.recorder.backup_status()[0] == 0
    assert [row["number"] for row in house.recorder.runs(task_id, "--failed")] == [1]


def test_cancelled_run_is_no_success_and_says_why(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.rate = CRAWL
        house.record(0, 0, "01-00-00.mp4", noise(40 * MIB, "long"))
        task_id = create_scheduled(house, port=proxy.port)
        house.force(task_id)
        house.wait_for(task_id, RUNNING)
        wait_until(lambda: newest(house, task_id)["files_planned"] == 1, "the plan")
        assert newest(house, task_id)["outcome"] == "running"
        task, = house.recorder.backup_status()[1]["tasks"]
        assert task["state"] == "running" and "percent" in task and "last_success" not in task
        house.activate(task_id, False)
        house.wait_for_end(task_id)
    run = wait_for_outcome(house, task_id, 1)
    assert (run["outcome"], run["reason"]) == ("cancelled", "stopped by hand")
    code, status = house.recorder.backup_status()
    assert code == 0 and status["headline"].startswith("NOT YET SAFE: ")


def test_killed_daemons_run_is_interrupted_and_the_next_one_goes_on_with_it(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.crawl_after(10 * MIB)
        house.record(0, 0, "01-00-00.mp4", noise(30 * MIB, "long"))
        task_id = house.create(port=proxy.port)
        house.force(task_id)
        wait_until(proxy.crawls, "a part of it")
        house.recorder.kill_service("recording-backupd")
        code, status = house.recorder.backup_status()
        assert (code, status["daemon_answers"]) == (1, False)
        assert "the backup daemon does not answer" in status["problems"][0]
        daemon = house.recorder.start_service("recording-backupd")
        wait_until(lambda: newest(house, task_id)["number"] == 2, "the next run")
        proxy.rate = None
        house.wait_for_end(task_id)
    second, first = wait_for_outcome(house, task_id, 2), house.recorder.runs(task_id)[1]
    assert (first["outcome"], first["reason"]) == (
        "interrupted", "the backup daemon ended in the middle of the run")
    assert first["started"] <= first["ended"] <= second["started"]
    assert (second["cause"], second["outcome"]) == ("resumed", "success")
    assert 0 < second["bytes_sent"] < 30 * MIB
    assert end(daemon) == 0


def test_missed_run_is_made_up_and_says_so(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(scheduleHour=FAR_HOUR)
    wait_until(lambda: house.database("SELECT * FROM next_run"), "the schedule")
    write(house, "UPDATE next_run SET due = ?", int(time.time()) - 3 * DAY)
    house.wait_for_end(task_id)
    run = wait_for_outcome(house, task_id, 1)
    assert (run["cause"], run["outcome"]) == ("missed", "success")
    write(house, "UPDATE next_run SET due = ?", int(time.time()) - 1)
    assert wait_for_outcome(house, task_id, 2)["cause"] == "schedule"


def test_task_without_a_success_in_its_time_is_overdue(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = create_scheduled(house)
    house.run(task_id)
    house.wait_until_success_counts(task_id)

    def status():
        return house.recorder.backup_status()[1]["tasks"][0]

    assert status()["overdue"] is False
    long_ago = int(time.time()) - 31 * 3600
    write(house, "UPDATE task_health SET success_time = ?, first_due = ?", long_ago, long_ago)
    write(house, "UPDATE run SET ended = ?", long_ago)
    wait_until(lambda: status()["overdue"], "the task to be overdue")
    assert status()["overdue_from"] == long_ago + 30 * 3600
    assert status()["problems"][0].startswith("overdue since ")
    code, whole = house.recorder.backup_status()
    assert code == 1 and whole["headline"].startswith("ATTENTION: ")
    house.recorder.ctl("config", "set", "backup", "overdue_grace", "50")
    wait_until(lambda: not status()["overdue"], "the longer grace time")
    house.recorder.ctl("config", "unset", "backup", "overdue_grace")
    wait_until(lambda: status()["overdue"], "the shorter grace time")
    house.run(task_id)
    wait_until(lambda: not status()["overdue"], "the success to count")


def test_task_that_never_succeeded_is_overdue_from_its_first_due_time_on(house):
    create_scheduled(house, serverIP="")
    assert house.recorder.backup_status()[0] == 0
    due = int(time.time()) - 10
    write(house, "UPDATE next_run SET due = ?", due)
    write(house, "UPDATE task_health SET first_due = ?", due)
    wait_until(lambda: house.recorder.backup_status()[1]["tasks"][0]["overdue"], "overdue")
    problems = house.recorder.backup_status()[1]["tasks"][0]["problems"]
    assert any("it has never succeeded" in problem for problem in problems)


def test_figures_that_are_old_need_attention(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.rate = CRAWL
        house.record(0, 0, "01-00-00.mp4", noise(40 * MIB, "long"))
        task_id = create_scheduled(house, port=proxy.port)
        house.force(task_id)
        house.wait_for(task_id, RUNNING)
        holder = sqlite3.connect(STATE / "backupd.db", timeout=60, isolation_level=None)
        holder.execute("BEGIN IMMEDIATE")
        wait_until(lambda: any("seconds old" in problem for problem in
                               house.recorder.backup_status()[1]["tasks"][0]["problems"]),
                   "old figures")
        assert house.recorder.backup_status()[0] == 1
        holder.execute("ROLLBACK")
        holder.close()
        wait_until(lambda: house.recorder.backup_status()[0] == 0, "new figures")
        house.activate(task_id, False)
        house.wait_for_end(task_id)


def test_deleted_tasks_runs_can_be_asked_for(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(taskName="Yard")
    house.run(task_id)
    wait_for_outcome(house, task_id, 1)
    assert house.recorder.call("DELETE", f"task/{task_id}?isStop=0").json["ret_code"] == 0
    wait_until(lambda: not house.recorder.stored_tasks(), "the end of the task")
    assert newest(house, task_id)["name"] == "Yard"
    code, status = house.recorder.backup_status()
    assert code == 1 and status["problems"] == ["there is no task: nothing is copied"]


def test_killed_at_any_moment_the_daemon_leaves_a_true_history(tmp_path):
    with House(tmp_path, channels=1) as house, FaultProxy(house.samba.port) as proxy:
        scene = KillScene(house, proxy, random.Random(20240301))
        for _ in range(KILLS):
            scene.live_a_while_and_be_killed()
        scene.check_the_end()
