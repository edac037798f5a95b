"""What requests get while a store cannot be written: an answer in time, and no half of a change."""
import sqlite3
import threading
import time

import pytest

from backup_house import NEW, RUNNING, SUCCESS
from fault_proxy import FaultProxy
from places import STATE
from store_trouble import (RATE, Lock, SmallState, delete, notice, running, start_copying,
                           waiting)

ROUNDS = 10
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
    lock = Lock("config.db", 15)
    for _ in range(ROUNDS):
        assert waiting() == []
        assert running() in ([task_id], [])
        refused = [notice(start_task=False, taskID=int(task_id)),
                   notice(start_task=True, taskID=int(other)),
                   delete(task_id)]
        for status, reply in refused:
            assert (status, reply) == (500, {"retCode": 500, "mesg": "database is locked"})
    assert lock.held, "the answers came too late"
    assert (house.status(task_id), house.status(other)) == (RUNNING, NEW)
    lock.wait()
    house.wait_for_end(task_id)
    assert (house.status(task_id), house.status(other)) == (SUCCESS, NEW)


def test_requests_are_answered_while_the_daemons_own_memory_is_locked(house, proxy):
    task_id = start_copying(house, proxy)
    other = house.create(taskName="other")
    lock = Lock("backupd.db", 15)
    for _ in range(ROUNDS):
        assert running() == [task_id]
        assert notice(start_task=True, taskID=int(other)) == DONE
        assert waiting() == [other]
    assert lock.held, "the answers came too late"
    lock.wait()
    for run in (task_id, other):
        house.wait_for_end(run)
        assert house.status(run) == SUCCESS


def test_short_writes_of_others_refuse_nobody(house, proxy):
    proxy.stalled = True
    house.record(0, 0, "01-00-00.mp4", b"x")
    tasks = [house.create(port=proxy.port, taskName=str(number)) for number in range(3)]
    ended = threading.Event()

    def write():
        connection = sqlite3.connect(STATE / "config.db", timeout=SECONDS, isolation_level=None)
        connection.execute("PRAGMA synchronous = OFF")  # a slow disk would make the writes long
        while not ended.is_set():
            connection.execute("BEGIN IMMEDIATE")
            connection.execute("UPDATE task SET endTime = endTime")
            time.sleep(0.02)
            connection.execute("COMMIT")
            time.sleep(0.02)
        connection.close()

    writer = threading.Thread(target=write)
    writer.start()
    try:
        for _ in range(ROUNDS):
            for task_id in tasks:
                assert notice(start_task=True, taskID=int(task_id)) == DONE
            for task_id in reversed(tasks):
                assert notice(start_task=False, taskID=int(task_id)) == DONE
    finally:
        ended.set()
        writer.join()


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
            requests = refused = 0
            began = time.monotonic()
            while refused < ROUNDS:
                for other in others:
                    waited = other in waiting()
                    answer = notice(start_task=not waited, taskID=int(other))
                    assert answer in (DONE, FULL)
                    refused += answer == FULL
                    assert (other in waiting()) == (waited if answer == FULL else not waited)
                    assert running() == [task_id]
                    requests += 4
            assert time.monotonic() - began < requests, "a second for each"
        proxy.stalled = False
        small.wait_for_end(task_id)
        assert small.status(task_id) == SUCCESS
