"""What requests get while a store cannot be written: an answer in time, and no half of a change."""
import sqlite3
import time

import pytest

from backup_house import NEW, RUNNING, SUCCESS
from fault_proxy import FaultProxy
from places import STATE
from repeating import Repeating
from store_trouble import (RATE, Lock, SmallState, delete, notice, running, start_copying,
                           waiting)
from waiting import SECONDS, wait_until

ROUNDS = 10
LONGEST_REFUSAL = 60  # seconds for which a run goes on though its store takes nothing
SHORT = 0.1  # seconds of a write that nobody is refused for
DONE = (200, {"retCode": 0})
FULL = (500, {"retCode": 500, "mesg": "database or disk is full"})


@pytest.fixture
def proxy(house):
    with FaultProxy(house.samba.port) as between:
        between.rate = RATE
        yield between


def test_requests_are_answered_while_the_store_is_locked_and_refused_ones_change_nothing(
        house, proxy):
    task_id = start_copying(house, proxy)
    other = house.create(taskName="other")
    house.wait_for(task_id, RUNNING)
    lock = Lock("config.db")
    for _ in range(ROUNDS):
        assert waiting() == [] or lock.seconds() > LONGEST_REFUSAL
        assert running() in ([task_id], [])
        refused = [notice(start_task=False, taskID=int(task_id)),
                   notice(start_task=True, taskID=int(other)),
                   delete(task_id)]
        for status, reply in refused:
            assert (status, reply) == (500, {"retCode": 500, "mesg": "database is locked"})
    assert (house.status(task_id), house.status(other)) == (RUNNING, NEW)
    lock.release()
    proxy.rate = None
    house.wait_for_end(task_id)
    assert (house.status(task_id), house.status(other)) == (SUCCESS, NEW)


def test_requests_are_answered_while_the_daemons_own_memory_is_locked(house, proxy):
    task_id = start_copying(house, proxy)
    other = house.create(taskName="other")
    lock = Lock("backupd.db")
    for _ in range(ROUNDS):
        answers = running(), notice(start_task=True, taskID=int(other)), waiting()
        assert answers == ([task_id], DONE, [other]) or lock.seconds() > LONGEST_REFUSAL
    lock.release()
    proxy.rate = None
    for run in (task_id, other):
        house.wait_for_end(run)
        assert house.status(run) == SUCCESS


class ShortWrites(Repeating):
    """Writes again and again, and has the store for 20 ms each time, or for what a busy machine
    makes of that."""

    pause = 0.02

    def __init__(self):
        self.connection = sqlite3.connect(STATE / "config.db", timeout=SECONDS,
                                          isolation_level=None, check_same_thread=False)
        self.connection.execute("PRAGMA synchronous = OFF")  # a slow disk would make them long
        self.writes = self.longest = 0

    def look(self):
        self.connection.execute("BEGIN IMMEDIATE")
        self.began = time.monotonic()
        self.connection.execute("UPDATE task SET endTime = endTime")
        time.sleep(0.02)
        self.longest = max(self.longest, time.monotonic() - self.began)
        self.connection.execute("COMMIT")
        self.writes += 1

    def was_long(self):
        """Whether one of them was, or the one that goes on is."""
        return max(self.longest, time.monotonic() - self.began) > SHORT


def test_short_writes_of_others_refuse_nobody(house, proxy):
    proxy.stalled = True
    house.record(0, 0, "01-00-00.mp4", b"x")
    tasks = [house.create(port=proxy.port, taskName=str(number)) for number in range(3)]
    with ShortWrites() as others:
        wait_until(lambda: others.writes, "the first of them")
        for _ in range(ROUNDS):
            answers = [notice(start_task=True, taskID=int(task_id)) for task_id in tasks]
            answers += [notice(start_task=False, taskID=int(task_id)) for task_id in tasks[::-1]]
            assert answers == [DONE] * 6 or others.was_long()
    others.connection.close()


@pytest.fixture
def small(tmp_path):
    with SmallState(tmp_path) as fresh:
        yield fresh


def test_requests_are_answered_while_the_state_disk_is_full_and_refused_ones_change_nothing(small):
    """A database takes what goes into pages that it has already, so some are carried out."""
    with FaultProxy(small.samba.port) as proxy:
        task_id = start_copying(small, proxy)
        proxy.stalled = True
        others = [small.create(taskName=f"other {number}") for number in range(4)]
        with small.full_disk():
            refused = 0
            while refused < ROUNDS:
                for other in others:
                    waited = other in waiting()
                    answer = notice(start_task=not waited, taskID=int(other))
                    assert answer in (DONE, FULL)
                    refused += answer == FULL
                    assert (other in waiting()) == (waited if answer == FULL else not waited)
                    assert running() == [task_id]
        proxy.stalled, proxy.rate = False, None
        small.wait_for_end(task_id)
        assert small.status(task_id) == SUCCESS
