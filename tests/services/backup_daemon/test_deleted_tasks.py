"""What a deleted task leaves on a share: its copies, and no file that it had begun."""
import pytest

from backup_house import MIB, noise
from fault_proxy import FaultProxy
from waiting import wait_until

LONG = 20 * MIB


@pytest.fixture
def proxy(house):
    with FaultProxy(house.samba.port) as between:
        yield between


def unfinished(house):
    return [path for path in house.shared() if path.endswith(".part")]


def begin_a_file(house, proxy, channel=0):
    """Gives a task that has copied one file and stands still in the middle of the second."""
    house.record(channel, 1, "01-00-00.mp4", b"whole")
    task_id = house.create(port=proxy.port, chIdxList=[channel])
    house.run(task_id)
    house.record(channel, 0, "01-00-00.mp4", noise(LONG, channel))
    proxy.stall_after(LONG // 2)
    house.force(task_id, stop=False, parallel=True)
    wait_until(lambda: proxy.stalled and house.database(
        "SELECT * FROM checkpoint WHERE taskID = ? AND offset > 0", task_id), "a begun file")
    return task_id


def stop(house, proxy, task_id):
    house.activate(task_id, active=False)
    house.wait_for_end(task_id)
    proxy.stalled = False


def delete(house, task_id):
    assert house.recorder.call("DELETE", f"task/{task_id}?isStop=0").json["ret_code"] == 0


def wait_until_it_is_gone(house):
    wait_until(lambda: not unfinished(house), "the end of the unfinished file")
    wait_until(lambda: not house.database("SELECT * FROM checkpoint"), "the end of its checkpoint")
    assert [path.split("/", 1)[0] for path in house.shared()] == ["Camera 0"], "its copy stays"


def test_deleted_tasks_unfinished_file_goes(house, proxy):
    task_id = begin_a_file(house, proxy)
    stop(house, proxy, task_id)
    assert len(unfinished(house)) == 1
    events = len(house.events())
    delete(house, task_id)
    wait_until_it_is_gone(house)
    assert len(house.events()) == events + 1, "the deletion's"


def test_task_that_is_deleted_while_it_runs_leaves_no_unfinished_file(house, proxy):
    task_id = begin_a_file(house, proxy)
    delete(house, task_id)
    proxy.stalled = False
    wait_until_it_is_gone(house)


def test_share_that_comes_back_loses_the_file_then(house, proxy):
    task_id = begin_a_file(house, proxy)
    stop(house, proxy, task_id)
    proxy.refusing = True
    delete(house, task_id)
    house.run(house.create(chIdxList=[1], destPath="/backup/elsewhere"))
    assert len(unfinished(house)) == 1
    proxy.refusing = False
    wait_until_it_is_gone(house)


def test_next_run_to_the_place_removes_what_could_not_be_removed_then(house, proxy):
    with FaultProxy(house.samba.port) as another:
        kept = begin_a_file(house, another, channel=1)
        stop(house, another, kept)
    task_id = begin_a_file(house, proxy)
    stop(house, proxy, task_id)
    proxy.refusing = True
    delete(house, task_id)
    house.recorder.stop()
    house.recorder.serve()
    wait_until(lambda: house.database("SELECT * FROM checkpoint WHERE abandoned"), "the next look")
    assert len(unfinished(house)) == 2
    house.record(2, 0, "01-00-00.mp4", b"of the third camera")
    house.run(house.create(chIdxList=[2]))
    left, = unfinished(house)
    assert left.startswith("Camera 1/"), "the other task goes on with it"
    assert [row["taskID"] for row in house.database("SELECT * FROM checkpoint")] == [int(kept)]
