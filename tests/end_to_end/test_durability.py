"""What was answered with success is stored, whatever is killed, restarted or done at once."""
import itertools
import os
import random
import re
import resource
import signal
import sqlite3
import statistics
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import closing
from http.client import HTTPException
from pathlib import Path

import pytest

from event_ids import TASK_CREATED
from places import STATE
from replies import SUCCESS
from sample_task import task, task_body
from waiting import wait_until

CREATES = 200
AT_ONCE = 8


def body(name):
    return task_body(taskName=name).encode()


def locked_bytes(pid):
    """What a process keeps in memory, whatever else is short of it."""
    status = Path(f"/proc/{pid}/status").read_text()
    return int(re.search(r"^VmLck:\s*(\d+) kB$", status, re.MULTILINE)[1]) * 1024


@pytest.mark.skipif(resource.getrlimit(resource.RLIMIT_MEMLOCK)[0] < 8 * 1024 * 1024,
                    reason="no process may keep as much in memory here")
@pytest.mark.parametrize("service, database", [("recording-backupd", "config.db"),
                                               ("recorder-logd", "events.db")])
def test_journal_that_requests_write_stays_in_memory(recorder, service, database):
    journal = (STATE / f"{database}-wal").stat().st_size
    assert locked_bytes(recorder.service(service)) >= journal > 4_000_000


def assert_sound(database):
    with closing(sqlite3.connect(f"file:{STATE / database}?mode=ro", uri=True)) as connection:
        assert connection.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
        assert connection.execute("PRAGMA foreign_key_check").fetchall() == []


def test_two_hundred_creates_at_eight_at_a_time_lose_none_and_number_them_without_a_gap(recorder):
    names = [f"task {number}" for number in range(CREATES)]
    with ThreadPoolExecutor(AT_ONCE) as pool:
        replies = list(pool.map(lambda name: recorder.create(taskName=name).text, names))
    assert replies == [SUCCESS] * CREATES
    stored = recorder.stored_tasks()
    assert [record["taskID"] for record in stored] == [str(n + 1) for n in range(CREATES)]
    assert sorted(record["taskName"] for record in stored) == sorted(names)
    events = recorder.ctl_json("event", "list", "--limit", "1000")
    assert sorted(event["arguments"][1] for event in events) == sorted(names)
    assert {event["id"] for event in events} == {TASK_CREATED}


def test_creates_at_once_that_start_at_once_all_end_in_the_queue(recorder):
    with ThreadPoolExecutor(AT_ONCE) as pool:
        replies = list(pool.map(lambda number: recorder.create(backupImmediately=True).text,
                                range(3 * AT_ONCE)))
    assert replies == [SUCCESS] * len(replies)
    stored = recorder.stored_tasks()
    assert len(stored) == len(replies)
    # Each starts the newest task that it sees, so two may start the same one; none is started that
    # is not there, and the very newest always is.
    wait_until(lambda: recorder.stored_tasks()[-1]["startTime"], "the run of the newest")
    assert_sound("config.db")


def test_changes_of_one_task_at_once_leave_one_of_them_whole(recorder):
    recorder.create_successfully()
    with ThreadPoolExecutor(AT_ONCE) as pool:
        bodies = [task(taskName=f"name {n}", destPath=f"/path/{n}", port=n) for n in range(40)]
        replies = list(pool.map(lambda text: recorder.call("POST", "task/1", text).text, bodies))
    assert replies == [SUCCESS] * len(bodies)
    stored, = recorder.stored_tasks()
    number = stored["port"]
    assert (stored["taskName"], stored["destPath"]) == (f"name {number}", f"/path/{number}")


class Killed:
    """Creates that are killed at random moments; `answered`: names answered with success."""

    def __init__(self, recorder):
        self.recorder = recorder
        self.random = random.Random(os.environ.get("RECORDER_TEST_SEED", "1"))
        self.durations = []
        self.answered = set()
        self.sent = set()
        self.kills = self.survivors = 0
        for _ in range(9):
            self.undisturbed()

    def undisturbed(self):
        """One that nobody kills, to see how long that takes at the moment."""
        name = f"undisturbed {len(self.durations)}"
        begin = time.monotonic()
        process = self.recorder.start_cgi("PUT", "task", body(name))
        assert SUCCESS in process.communicate()[0].decode()
        self.durations.append(time.monotonic() - begin)
        self.sent.add(name)
        self.answered.add(name)

    def create(self, name):
        self.sent.add(name)
        process = self.recorder.start_cgi("PUT", "task", body(name))
        time.sleep(self.random.uniform(0, 1.2 * statistics.median(self.durations[-9:])))
        process.send_signal(signal.SIGKILL)
        reply = process.communicate()[0].decode()
        self.kills += process.returncode == -signal.SIGKILL
        if SUCCESS in reply:
            self.survivors += 1
            self.answered.add(name)


def test_killing_the_program_amid_creates_loses_no_task_that_was_answered(recorder):
    killed = Killed(recorder)
    for number in range(3000):
        killed.create(f"killed {number}")
        if killed.kills >= 150 and killed.survivors >= 30:
            break
        if number % 20 == 0:
            killed.undisturbed()
    stored = [record["taskName"] for record in recorder.stored_tasks()]
    print(f"{killed.kills} killed, {len(killed.answered)} answered, {len(stored)} stored")
    assert killed.kills >= 150 and killed.survivors >= 30, "the moments were badly chosen"
    assert killed.answered <= set(stored) <= killed.sent
    assert len(stored) == len(set(stored)), "a task was stored twice"
    # The moments reach behind the store: some were stored, and killed before they could say so.
    assert len(stored) > len(killed.answered)
    assert_sound("config.db")
    assert_sound("events.db")
    recorder.create_successfully(taskName="afterwards")
    listed = [entry["taskName"] for entry in recorder.list_tasks()]
    assert listed == stored + ["afterwards"]


def queue(recorder):
    return {entry["taskID"]: entry["sequence"] for entry in recorder.list_tasks()}


QUEUE = {"1": -1, "2": 1, "3": -1, "4": 0}


def fill_queue(recorder):
    """Task 1 runs and finds no end, 4 and 2 wait for it."""
    recorder.start_endless_run()
    for name in ("second", "third", "fourth"):
        recorder.create_successfully(taskName=name)
    for task_id in ("4", "2"):
        recorder.enqueue(task_id)
    assert queue(recorder) == QUEUE


def test_restart_of_everything_keeps_tasks_queue_events_and_sessions(recorder):
    fill_queue(recorder)
    tasks, events = recorder.stored_tasks(), recorder.requested_events()
    recorder.restart()
    assert queue(recorder) == QUEUE
    assert recorder.stored_tasks() == tasks
    assert recorder.requested_events() == events
    recorder.create_successfully(taskName="fifth")
    assert [record["taskID"] for record in recorder.stored_tasks()] == ["1", "2", "3", "4", "5"]


def test_crash_of_the_daemon_keeps_tasks_and_queue(recorder):
    fill_queue(recorder)
    recorder.kill_service("recording-backupd")
    recorder.start_service("recording-backupd")
    assert queue(recorder) == QUEUE


def test_crash_of_everything_amid_creates_keeps_what_was_answered(recorder):
    answered, over = set(), threading.Event()

    def create_until_the_crash(client):
        for number in itertools.takewhile(lambda _: not over.is_set(), itertools.count()):
            name = f"task {number} of {client}"
            try:
                reply = recorder.create(taskName=name)
            except (OSError, HTTPException):
                return  # the web server is gone, perhaps amid its reply
            if reply.body.startswith(SUCCESS.encode()):
                answered.add(name)

    with ThreadPoolExecutor(AT_ONCE) as pool:
        clients = [pool.submit(create_until_the_crash, client) for client in range(AT_ONCE)]
        try:
            wait_until(lambda: len(recorder.stored_tasks()) >= 40, "forty creates")
            recorder.crash()
        finally:
            over.set()
        for client in clients:
            client.result()
    stored = {record["taskName"] for record in recorder.stored_tasks()}
    assert len(answered) >= 40 - AT_ONCE
    assert answered <= stored
    assert_sound("config.db")
    assert_sound("events.db")
    recorder.serve()
    assert {entry["taskName"] for entry in recorder.list_tasks()} == stored
