"""What runs make of stores that cannot be written for a while: locked by others, a full disk."""
import time

import pytest

from backup_house import MIB, PREPARE_START, RUNNING, SUCCESS, WAIT
from event_ids import RUN_FAILED, RUN_RESUMED, RUN_STARTED, RUN_SUCCEEDED, is_of_a_run
from fault_proxy import FaultProxy
from places import LOGS
from store_trouble import (FILES, RATE, SIZE, Lock, SmallState, record, running, start_copying,
                           waiting)
from waiting import wait_until

MESSAGE = "the recorder's own database cannot be written: database is locked"


@pytest.fixture
def proxy(house):
    with FaultProxy(house.samba.port) as between:
        between.rate = RATE
        yield between


def run_events(house):
    """What the runs have told, oldest first."""
    return [event for event, _ in reversed(house.events()) if is_of_a_run(event)]


def check_success(house, task_id, proxy):
    """One run from its beginning to its end, in which no lane was lost."""
    house.wait_for_end(task_id)
    assert house.status(task_id) == SUCCESS
    assert house.shared() == house.sources()
    assert len(house.copied()) == FILES
    house.check_records()
    assert house.database("SELECT * FROM checkpoint") == []
    assert run_events(house) == [RUN_STARTED, RUN_SUCCEEDED]
    wait_until(lambda: [row["percent"] for row in house.progress(task_id)] == [100],
               "the last figures")
    assert proxy.connections <= 3
    assert proxy.sent < FILES * SIZE + 2 * MIB


def bring_to(moment, house, proxy):
    """A run that is connecting, held up by the proxy, or has copied so many files."""
    record(house)
    task_id = house.create(port=proxy.port)
    proxy.stalled = moment == "connecting"
    house.force(task_id)
    if moment == "connecting":
        house.wait_for(task_id, PREPARE_START)
    else:
        wait_until(lambda: len(house.copied()) >= moment, "some copies")
    return task_id


MOMENTS = pytest.mark.parametrize("moment", ["connecting", FILES // 3, FILES - 3])


@pytest.mark.parametrize("database", ["backupd.db", "config.db"])
@MOMENTS
def test_run_gets_over_a_locked_store(house, proxy, database, moment):
    task_id = bring_to(moment, house, proxy)
    lock = Lock(database, 10)
    proxy.stalled = False
    lock.wait()
    check_success(house, task_id, proxy)


def test_message_tells_what_a_run_waits_for(house, proxy):
    task_id = bring_to("connecting", house, proxy)
    lock = Lock("config.db")

    def message():
        return [row["message"] for row in house.progress(task_id)]

    proxy.stalled = False
    wait_until(lambda: message() == [MESSAGE], "the message")
    lock.release()
    house.wait_for(task_id, RUNNING)
    wait_until(lambda: message() == [""], "the end of the message")
    check_success(house, task_id, proxy)


def test_run_that_cannot_store_for_a_minute_goes_on_by_itself_when_it_can(house, proxy):
    task_id = start_copying(house, proxy)
    other = house.create(taskName="other")
    lock = Lock("backupd.db")
    house.wait_for(task_id, WAIT)
    house.force(other, stop=False)
    assert house.last_event(RUN_FAILED) == [MESSAGE]
    wait_until(lambda: proxy.pairs == {}, "the end of its lanes")
    assert waiting() == [task_id, other]
    assert running() == []
    lock.release()
    proxy.rate = None
    for run in (task_id, other):
        house.wait_for_end(run)
        assert house.status(run) == SUCCESS
    assert run_events(house) == [RUN_STARTED, RUN_FAILED, RUN_RESUMED, RUN_SUCCEEDED, RUN_STARTED,
                                 RUN_SUCCEEDED]
    assert house.shared() == house.sources()
    house.check_records()
    said = (LOGS / "recording-backupd.log").read_text()
    assert said.count("database is locked") < 10, "lines that nobody reads"


@pytest.fixture
def small(tmp_path):
    with SmallState(tmp_path, channels=3) as house:
        yield house


@MOMENTS
def test_run_gets_over_a_full_state_disk(small, moment):
    with FaultProxy(small.samba.port) as proxy:
        proxy.rate = RATE
        task_id = bring_to(moment, small, proxy)
        with small.full_disk():
            proxy.stalled = False
            time.sleep(9)
        check_success(small, task_id, proxy)
