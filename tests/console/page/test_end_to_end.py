"""The page on a real recorder, daemon and file server: what is done there is really done."""
import json
import os
import subprocess
from contextlib import contextmanager
from pathlib import Path

import pytest

from backup_house import MIB, House, noise
from fault_proxy import FaultProxy
from loopback import free_port
from places import BUILD
from samba_server import USER
from second_machine import (ADDRESS, SECOND, connect, fingerprint, needs_a_network_of_its_own,
                            shown)
from service_process import start_recorder
from trusted_certificates import trust
from waiting import SECONDS

SCENES = Path(__file__).with_name("end_to_end.mjs")
DAEMON = "recording-backupd"
MOUNT_TOOL = Path("/usr/sbin/mount.cifs")
NODE = next(BUILD.glob("console_tests/node_modules/node-linux-*/bin/node"))


class Scene:
    """One scene of the browser's, in turns with the test."""

    def __init__(self, name, house, port, url=None, machine=(), **environment):
        facts = {"url": url or f"http://127.0.0.1:{house.recorder.port}", "server": "127.0.0.1",
                 "port": port, "user": USER, "password": house.samba.password,
                 "nobody": free_port()}
        self.process = subprocess.Popen(
            [*machine, NODE, SCENES, name], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            text=True, env={**os.environ, **environment, "SCENE": json.dumps(facts)})

    def until(self, said):
        """Waits for it to pause with these words."""
        heard = []
        while f"{said}\n" not in heard[-1:]:
            heard.append(self.process.stdout.readline())
            assert heard[-1], heard

    def go_on(self):
        self.process.stdin.write("\n")
        self.process.stdin.flush()

    def end(self):
        said, _ = self.process.communicate(timeout=SECONDS)
        assert self.process.returncode == 0, said


@contextmanager
def scene(name, house, port=None, **how):
    one = Scene(name, house, port or house.samba.port, **how)
    try:
        yield one
        one.end()
    finally:
        one.process.kill()
        one.process.wait()


@pytest.fixture(name="house")
def build_house(tmp_path):
    with House(tmp_path, channels=2) as house:
        house.recorder.ctl("config", "set", "fuse", "fuse_enabled", "1")
        for channel in range(2):
            for days_ago in (0, 1):
                house.record(channel, days_ago, "08-00-00.mp4", noise(2 * MIB, channel))
        yield house


def test_from_an_empty_recorder_to_verified_copies(house):
    with scene("firstBackup", house):
        pass
    assert house.shared() == house.sources()


def test_a_failure_tells_its_reason_and_is_mended_on_the_page(house):
    with scene("failureAndRecovery", house):
        pass
    assert house.shared() == house.sources()


def test_a_restarted_recorder_comes_back_under_the_open_page(house):
    house.create(taskName="Night copies")
    with scene("restart", house) as one:
        one.until("open")
        house.recorder.server.terminate()
        house.recorder.server.communicate(timeout=SECONDS)
        one.go_on()
        one.until("lost")
        house.recorder.server = start_recorder(house.recorder.port, env=house.recorder.environment)
        one.go_on()
    assert house.shared() == house.sources()


def test_a_restarted_backup_service_comes_back_under_the_open_page(house):
    house.create(taskName="Night copies")
    with scene("daemonRestart", house) as one:
        one.until("open")
        house.recorder.kill_service(DAEMON)
        one.go_on()
        one.until("down")
        house.recorder.start_service(DAEMON)
        one.go_on()
    assert house.shared() == house.sources()


def test_of_two_administrators_neither_overwrites_the_other_in_silence(house):
    house.create(taskName="Night copies", scheduleHour=3)
    with scene("twoAdministrators", house) as one:
        one.until("asked")
        before, = house.recorder.stored_tasks()
        one.go_on()
    after, = house.recorder.stored_tasks()
    assert (before["taskName"], before["scheduleHour"]) == ("Theirs", 3)
    assert (after["taskName"], after["scheduleHour"], after["scheduleMin"]) == ("Theirs", 4, 45)


def test_a_new_task_whose_answer_was_lost_is_made_once(house):
    with scene("lostAnswer", house):
        pass
    task, = house.recorder.stored_tasks()
    assert (task["taskName"], task["backupEndDay"]) == ("Night copies", "2026-11-02")


@pytest.fixture
def mounting(house):
    """Server tests find the house's server whether or not this kernel can mount its shares."""
    real = MOUNT_TOOL.rename(MOUNT_TOOL.with_suffix(".real"))
    text = SCENES.with_name("mount_stand_in.py").read_text()
    MOUNT_TOOL.write_text(text.replace('FOLDER = "/"', f"FOLDER = {str(house.share)!r}"))
    MOUNT_TOOL.chmod(0o755)
    yield
    real.rename(MOUNT_TOOL)


@pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                    reason="the tool can only be replaced in a private namespace")
@pytest.mark.usefixtures("mounting")
def test_a_server_is_tried_out_before_anything_is_saved(house):
    with scene("serverTried", house):
        pass
    assert (house.share / "recorder/night").is_dir()
    assert house.recorder.stored_tasks() == []


@pytest.fixture(name="slow")
def build_slow_line(house):
    with FaultProxy(house.samba.port) as line:
        line.rate = MIB
        for name in ("First", "Second"):
            house.create(taskName=name, port=line.port)
        yield line


def test_tasks_are_queued_replaced_stopped_switched_and_deleted(house, slow):
    with scene("manyHands", house):
        slow.rate = 64 * 1024
    tasks = house.recorder.stored_tasks()
    assert [(task["taskName"], task["enable"]) for task in tasks] == [("Second", False)]


def test_percent_only_rises(house, slow):
    slow.rate = 64 * 1024
    with scene("slowCopy", house) as one:
        one.until("seen")
        slow.rate = None
        one.go_on()
    assert house.shared() == house.sources()


def test_the_time_left_is_right_within_a_factor_of_two_after_ten_seconds(house, slow):
    slow.rate = MIB
    for channel in range(2):
        house.record(channel, 2, "08-00-00.mp4", noise(9 * MIB, channel))
    with scene("timeLeft", house):
        pass
    assert house.shared() == house.sources()


@needs_a_network_of_its_own()
def test_the_same_from_a_second_machine_over_tls_after_one_command(house, tmp_path):
    """Its browser trusts the certificate, as somebody has it who has compared fingerprints."""
    connect()
    where = f"{ADDRESS}:8443"
    told = house.recorder.ctl("web", "listen", where)
    certificate = shown(where)
    assert fingerprint(certificate) in told
    second = {"url": f"https://{where}", "machine": SECOND, "HOME": str(tmp_path / "home")}
    (tmp_path / "home").mkdir()
    with scene("doubtfulCertificate", house, **second):
        pass
    trust(tmp_path / "home", certificate)
    with scene("firstBackup", house, **second):
        pass
    assert house.shared() == house.sources()
