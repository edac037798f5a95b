"""What monitoring systems are told of real runs: before, during and after them."""
import pwd
import time

from backup_house import FAILED, MIB, RUNNING, House, noise
from fault_proxy import CRAWL, FaultProxy
from loopback import request
from metrics import PORT, promtool, scrape
from other_user import NOBODY, as_user
from places import STATE
from recorder_clock import FAR_HOUR
from service_process import end
from store_trouble import Lock
from waiting import wait_until

HOURS = 3600


def wait_for(figure, name, **labels):
    wait_until(lambda: scrape().get(name, **labels) == figure, f"{name} to be {figure}")


def runs(outcome, task_id):
    return scrape().get("runs_total", task_id=task_id, outcome=outcome)


def test_a_run_can_be_followed_from_before_its_beginning_to_after_its_end(house):
    with FaultProxy(house.samba.port) as proxy:
        proxy.rate = CRAWL
        house.record(0, 0, "01-00-00.mp4", noise(40 * MIB, "a"))
        task_id = house.create(port=proxy.port, taskName="Doors")
        before = scrape()
        of_task = {"task_id": task_id, "task": "Doors"}
        assert before.get("task_enabled", **of_task) == 1
        assert before.get("sent_bytes_total", **of_task) == 0
        assert before.get("last_success_timestamp_seconds", **of_task) is None
        assert (before.get("running_runs"), before.get("lanes"), before.get("waiting_tasks")) == (
            0, 0, 0)
        house.force(task_id)
        house.wait_for(task_id, RUNNING)
        wait_until(lambda: scrape().get("run_bytes_per_second", **of_task), "some speed")
        wait_until(lambda: 0 < scrape().get("run_progress_ratio", **of_task) < 1, "some progress")
        wait_until(lambda: 0 < scrape().get("sent_bytes_total", **of_task) < 40 * MIB, "some bytes")
        during = scrape()
        assert during.get("running_runs") == 1 and during.get("lanes") >= 1
        assert during.get("last_run_outcome", **of_task) is None
        other = house.create(port=proxy.port, taskName="Yard")
        house.recorder.enqueue(other)
        wait_for(1, "waiting_tasks")
        proxy.rate = None
        house.wait_for_end(task_id)
        house.wait_for_end(other)
    wait_for(1, "runs_total", outcome="success", **of_task)
    after = scrape()
    assert after.get("sent_bytes_total", **of_task) == 40 * MIB
    assert after.get("sent_files_total", **of_task) == 1
    assert after.get("last_run_outcome", outcome="success", **of_task) == 1
    assert after.get("last_run_failed", **of_task) == 0
    stored = house.database("SELECT success_time FROM task_health WHERE taskID = ?", task_id)
    assert after.get("last_success_timestamp_seconds", **of_task) == stored[0]["success_time"]
    assert after.get("run_bytes_per_second", **of_task) is None
    assert (after.get("running_runs"), after.get("lanes"), after.get("waiting_tasks")) == (0, 0, 0)
    promtool("check", "metrics", given=after.text)


def test_a_failed_run_its_files_and_its_retries_are_counted(house):
    with FaultProxy(house.samba.port) as proxy:
        house.record(0, 0, "01-00-00.mp4", noise(MIB, "good"))
        bad = house.record(0, 0, "02-00-00.mp4", noise(2000, "bad"))
        there = house.share / "recorder/Camera 0" / bad.parent.name / bad.name
        there.parent.mkdir(parents=True)
        there.write_bytes(b"somebody else's")
        task_id = house.create(port=proxy.port)
        assert scrape().get("retries_total", task_id=task_id) == 0
        proxy.cut_after(MIB // 2)
        house.run(task_id, FAILED)
    wait_for(1, "runs_total", outcome="failed", task_id=task_id)
    wait_for(1, "failed_files_total", task_id=task_id)  # noted behind the end
    after = scrape()
    assert after.get("sent_files_total", task_id=task_id) == 1
    assert after.get("retries_total", task_id=task_id) >= 1
    assert after.get("last_run_outcome", task_id=task_id, outcome="failed") == 1
    assert after.get("last_run_failed", task_id=task_id) == 1
    assert after.get("last_success_timestamp_seconds", task_id=task_id) is None


def test_a_task_that_is_late_is_overdue_until_it_succeeds_or_is_switched_off(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(scheduleHour=FAR_HOUR)
    house.run(task_id)
    wait_for(1, "runs_total", outcome="success", task_id=task_id)
    assert scrape().get("overdue", task_id=task_id) == 0
    house.wait_until_success_counts(task_id)
    long_ago = int(time.time()) - 31 * HOURS
    house.change_database(f"UPDATE task_health SET success_time = {long_ago}, "
                          f"first_due = {long_ago}")
    wait_for(1, "overdue", task_id=task_id)
    assert scrape().get("last_success_timestamp_seconds", task_id=task_id) == long_ago
    house.recorder.ctl("task", "set", task_id, "enable=false")
    wait_for(0, "overdue", task_id=task_id)
    assert scrape().get("task_enabled", task_id=task_id) == 0
    house.recorder.ctl("task", "set", task_id, "enable=true")
    wait_for(1, "overdue", task_id=task_id)
    house.run(task_id)
    wait_for(0, "overdue", task_id=task_id)


def test_counters_begin_anew_with_the_daemon_and_count_what_it_has_cut_off(tmp_path):
    with House(tmp_path, channels=1) as house, FaultProxy(house.samba.port) as proxy:
        house.record(0, 0, "01-00-00.mp4", noise(2 * MIB, "first"))
        task_id = house.create(port=proxy.port)
        house.run(task_id)
        wait_for(1, "runs_total", outcome="success", task_id=task_id)
        success = scrape().get("last_success_timestamp_seconds", task_id=task_id)
        proxy.rate = CRAWL
        house.record(0, 0, "02-00-00.mp4", noise(20 * MIB, "second"))
        house.force(task_id)
        wait_until(lambda: scrape().get("sent_bytes_total", task_id=task_id) > 2 * MIB, "a part")
        house.recorder.kill_service("recording-backupd")
        proxy.stalled = True  # so that the run that goes on sends nothing yet
        daemon = house.recorder.start_service("recording-backupd")
        anew = scrape()
        assert anew.get("runs_total", task_id=task_id, outcome="interrupted") == 1
        assert anew.get("runs_total", task_id=task_id, outcome="success") == 0
        assert anew.get("sent_files_total", task_id=task_id) == 0
        assert anew.get("sent_bytes_total", task_id=task_id) < 2 * MIB, "no byte is counted twice"
        assert anew.get("last_success_timestamp_seconds", task_id=task_id) == success
        proxy.stalled, proxy.rate = False, None
        house.wait_for_end(task_id)
        wait_for(1, "runs_total", outcome="success", task_id=task_id)
        assert scrape().get("sent_files_total", task_id=task_id) == 1
        assert end(daemon) == 0


def test_a_task_that_is_deleted_or_renamed_leaves_no_series(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(taskName="Yard")
    house.run(task_id)
    assert 'task="Yard"' in scrape().text
    house.recorder.ctl("task", "set", task_id, "taskName=Lawn")
    assert 'task="Yard"' not in scrape().text and 'task="Lawn"' in scrape().text
    assert house.recorder.call("DELETE", f"task/{task_id}?isStop=0").json["ret_code"] == 0
    wait_until(lambda: not house.recorder.stored_tasks(), "the end of the task")
    assert "task_id=" not in scrape().text


def test_no_name_of_a_task_forges_a_figure(house):
    names = ['"} 1', "a\\", 'a\nrecorder_backup_lanes 99\n', "ünïcode", "\x1b[2J\t", '{x="1"}']
    house.recorder.add_tasks(1)
    task_id = house.recorder.stored_tasks()[0]["taskID"]
    for name in names:
        house.recorder.ctl("task", "set", task_id, "taskName=" + name)
        told = scrape()
        assert told.get("overdue", task_id=task_id, task=name) == 0, name
        assert told.get("lanes") == 0
        promtool("check", "metrics", given=told.text)


def test_the_room_of_a_task_s_share_is_told_without_its_user(house):
    house.record(0, 0, "01-00-00.mp4", b"content")
    task_id = house.create(username="backup")
    house.run(task_id)
    share = f"//127.0.0.1:{house.samba.port}/backup"
    house.change_database("INSERT OR REPLACE INTO share_room (destination, free, total, time) "
                          f"VALUES ('{share}', 5000000000, 9000000000, 1)")
    told = scrape()
    assert told.get("share_free_bytes", share=share) == 5e9
    assert told.get("share_size_bytes", share=share) == 9e9
    assert told.get("share_room_timestamp_seconds", share=share) == 1
    assert house.samba.password not in told.text
    house.recorder.ctl("task", "set", task_id, "enable=false")
    assert scrape().get("share_free_bytes", share=share) is None, "nobody would ever ask again"


def test_calls_that_a_database_refuses_are_counted_and_figures_are_told_meanwhile(house):
    errors = scrape().get("store_errors_total")
    house.recorder.add_tasks(1)
    assert scrape().get("task_enabled", task_id="1") == 1
    held = Lock("config.db")
    assert request(10141, "DELETE", "/cfg/DataBackupService?taskID=1").status == 500
    told = scrape()
    held.release()
    assert told.get("store_errors_total") > errors
    assert told.get("task_enabled", task_id="1") == 1, "readers wait for no writer"
    held = Lock("backupd.db")
    assert scrape().get("running_runs") == 0
    held.release()


def test_agents_and_the_recorder_s_own_are_answered_there_and_nobody_else(house):
    def asks(user, port, path):
        def ask():
            try:
                return request(port, "GET", path).status
            except ConnectionError:
                return None
        return as_user(user, ask)

    agent = pwd.getpwnam("prometheus").pw_uid
    owner = STATE.stat().st_uid
    assert [asks(user, PORT, "/metrics") for user in (0, owner, agent, NOBODY)] == [
        200, 200, 200, None]
    waiting = "/databackupService/notify?act=get_waitingTask_seq"
    assert [asks(user, 10205, waiting) for user in (0, agent)] == [200, None]
    assert asks(agent, 10141, "/") is None
    assert asks(agent, PORT, "/nothing") == 404
    assert request(PORT, "PUT", "/metrics", "{}").status == 405
    assert request(PORT, "GET", "/metrics", headers={"Host": "evil.example"}).status == 403
