"""The package on a Debian that never saw it, as the page says, and the first night after."""
from datetime import datetime, timedelta, timezone

import pytest

from guest_recorder import ADMIN_PASSWORD, SERVICES, GuestRecorder
from page import follow

CAMERA = "/storage/front-door"  # the page's


@pytest.fixture(name="machine", scope="module")
def fixture_machine(bare_machine):
    return bare_machine


@pytest.fixture(name="recorder", scope="module")
def fixture_recorder(machine):
    return GuestRecorder(machine)


def test_page_s_lines_install_it_and_make_the_first_user_and_camera(machine, recorder):
    recorder.make_recordings(CAMERA)
    follow(machine, "As a package", "apt install",
           {"apt install": "y\n", "recorderctl user add": ADMIN_PASSWORD})
    assert machine.run("dpkg --audit") == ""
    assert "recordings_problem" not in machine.run("recorderctl channel list --json")


def test_services_run_before_anybody_restarts_anything(machine, recorder):
    recorder.wait_for_services()
    for unit in (*SERVICES, "recorder-backup-state.timer"):
        assert machine.run(f"systemctl is-enabled {unit}") == "enabled\n"
    assert machine.run("systemctl is-system-running --wait") == "running\n"
    assert recorder.ask("GET", "task")["task_list"] == []


def test_scheduled_run_is_made_after_a_restart_and_copies_bit_by_bit(machine, recorder):
    """Should the start take longer than until two o'clock, the run is made up for."""
    recorder.make_shares()
    task = recorder.create(destPath="/backup/nightly", chIdxList=[0], backupDays=9,
                           scheduleType="daily", scheduleHour=2, scheduleMin=0)
    night = datetime.now(timezone.utc) + timedelta(days=1)
    machine.restart(clock=night.replace(hour=1, minute=58, second=0))
    recorder.wait_for_services()
    recorder.wait_for_success(task)
    assert recorder.hashes(CAMERA) == recorder.hashes("/srv/backup/nightly")
    assert machine.run("systemctl is-system-running --wait") == "running\n"
