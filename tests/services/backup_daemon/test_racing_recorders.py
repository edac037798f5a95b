"""Several copies that want one name at the same time: exactly one gets it, and nothing is mixed."""
from contextlib import ExitStack

import pytest

from backup_house import SUCCESS, noise, tree
from event_ids import FILE_NOT_COPIED
from lone_daemon import LoneDaemon
from recorder_clock import day_name
from samba_server import SambaServer

DAY = day_name(3)
FILES = 120
NAMES = [f"01-{number // 60:02}-{number % 60:02}.mp4" for number in range(FILES)]
SLOWLY = 150_000  # bytes a second, so that the second one comes while the first one copies
FOREIGN = "another file, not of this recorder, has this name"


@pytest.fixture
def server(tmp_path):
    """The folders of two destinations are two, and the camera's folder in them is one: by a link on
    the server, which recorders cannot see."""
    share = tmp_path / "share"
    (share / "one").mkdir(parents=True)
    for name in ("a", "b"):
        (share / name).mkdir()
        (share / name / "Camera 0").symlink_to("../one")
    shares = {"backup": {"path": share, "read only": "no", "force user": "root"}}
    with SambaServer(tmp_path / "samba", shares) as started:
        started.share = share
        yield started


def record_all(daemon):
    daemon.add_camera(0, "Camera 0")
    for name in NAMES:
        daemon.record(0, DAY, name, noise(2000, (daemon.path, name)))
    return {path.removeprefix("0/"): digest for path, digest in tree(daemon.recordings).items()}


def failures(daemon):
    events = daemon.events("--limit", "1000")
    return [event["arguments"][2] for event in events if event["id"] == FILE_NOT_COPIED]


def recorded(daemon):
    """Its copies as it has them in its own memory, and their hashes."""
    return {path.removeprefix("Camera 0/"): digest for path, digest in daemon.memory(
        "SELECT path, sha256 FROM copied_file WHERE removed = 0")}


def test_of_two_recorders_exactly_one_gets_each_name(tmp_path, server):
    with ExitStack() as recorders:
        daemons = [recorders.enter_context(LoneDaemon(tmp_path / f"recorder {name}", server))
                   for name in ("a", "b")]
        sources = [record_all(daemon) for daemon in daemons]
        tasks = [daemon.add_task(destPath=f"/backup/{name}")
                 for daemon, name in zip(daemons, ("a", "b"))]
        for daemon in daemons:
            daemon.proxy.rate = SLOWLY
            daemon.start()
        for daemon, task_id in zip(daemons, tasks):
            daemon.begin_run(task_id)
        ends = [daemon.wait_for_end(task_id) for daemon, task_id in zip(daemons, tasks)]
        copies = tree(server.share / "one")
        won = [recorded(daemon) for daemon in daemons]
        assert copies == {**won[0], **won[1]}, "every name is somebody's, whole, and nothing else"
        assert len(won[0]) + len(won[1]) == len(copies) == FILES
        for daemon, source, mine, end in zip(daemons, sources, won, ends):
            assert mine.items() <= source.items()
            assert end == ("success" if len(mine) == FILES else "failed")
            assert all(FOREIGN in words for words in failures(daemon))
            assert len(failures(daemon)) == min(10, FILES - len(mine))


def test_two_tasks_that_copy_the_same_at_the_same_time_mix_nothing_and_leave_nothing(house):
    for name in NAMES:
        house.record(0, 1, name, noise(2000, name))
    tasks = [house.create(taskName=f"task {number}", chIdxList=[0]) for number in range(2)]
    for task_id in tasks:
        house.force(task_id, stop=False, parallel=True)
    for task_id in tasks:
        house.wait_for_end(task_id)
        assert house.status(task_id) == SUCCESS, house.last_event(FILE_NOT_COPIED)
    assert house.shared() == house.sources()
    for task_id in tasks:
        house.run(task_id)
    assert house.shared() == house.sources()
    house.check_records()
