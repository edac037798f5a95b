"""A loop that is really held up tells systemd nothing, and one that turns again does."""
import os

import pytest

from failing_folder import DEVICE, hanging_folder
from lone_daemon import LoneDaemon
from recorder_clock import day_name
from samba_server import SambaServer
from service_manager import ALIVE, READY, ServiceManager
from waiting import wait_until

PATIENCE = 0.4  # seconds


@pytest.fixture(name="server")
def samba(tmp_path):
    share = tmp_path / "share"
    share.mkdir()
    with SambaServer(tmp_path / "samba", {"backup": {
            "path": share, "read only": "no", "force user": "root"}}) as started:
        yield started


@pytest.mark.skipif(not os.path.exists(DEVICE), reason="no file system in user space here")
def test_a_folder_of_recordings_that_hangs_trips_the_watchdog(tmp_path, server):
    """As one of a network drive whose server is gone."""
    with ServiceManager(tmp_path, int(PATIENCE * 1e6)) as manager, \
            LoneDaemon(tmp_path / "recorder", server) as daemon:
        daemon.add_camera(0, "Camera 0")
        daemon.record(0, day_name(3), "01-00-00.mp4", b"content")
        task_id = daemon.add_task()
        daemon.environment.update(manager.environment)
        daemon.start()
        assert manager.hear() == READY
        assert manager.hear() == ALIVE
        with hanging_folder(daemon.recordings / "0"):
            daemon.begin_run(task_id)
            wait_until(lambda: manager.is_silent_for(10 * PATIENCE), "the loop to be held up")
            assert daemon.process.poll() is None
        assert manager.hear() == ALIVE
        assert daemon.wait_for_end(task_id) == "failed"


def test_a_run_that_copies_does_not_trip_it(tmp_path, server):
    """Nor does one whose server says nothing: copying processes wait for servers, not the loop."""
    with ServiceManager(tmp_path, int(PATIENCE * 1e6)) as manager, \
            LoneDaemon(tmp_path / "recorder", server) as daemon:
        daemon.add_camera(0, "Camera 0")
        for hour in range(20):
            daemon.record(0, day_name(3), f"{hour:02}-00-00.mp4", os.urandom(200_000))
        task_id = daemon.add_task()
        daemon.environment.update(manager.environment)
        daemon.proxy.rate = 1_000_000
        daemon.start()
        assert manager.hear() == READY
        daemon.begin_run(task_id)
        wait_until(lambda: daemon.memory("SELECT count(*) FROM copied_file")[0][0] > 3, "copies")
        daemon.proxy.stalled = True
        assert [manager.hear() for _ in range(10)] == [ALIVE] * 10
        daemon.proxy.stalled, daemon.proxy.rate = False, None
        assert daemon.wait_for_end(task_id) == "success"
