"""The virtual machine of a test file, whose tests are chapters of one life, in their order."""
import os
from pathlib import Path

import pytest

from guest_recorder import GuestRecorder
from machine import Machine, overlay
from places import BUILD, SOURCE

BASE = Path(os.environ["RECORDER_VM"])
INSTALLED = BUILD / "tests/vm/installed.qcow2"
broken = []  # chapters that failed: those after them would tell of the same


def pytest_runtest_makereport(item, call):
    if call.excinfo and not call.excinfo.errisinstance(pytest.skip.Exception):
        broken.append(item.name)


@pytest.fixture(autouse=True)
def in_order():
    assert not broken, f"{broken[0]} failed before"


@pytest.fixture(scope="session")
def package():
    unavailable = BASE / "unavailable"
    if unavailable.exists():
        pytest.skip("no virtual machine: " + unavailable.read_text().strip())
    assert (BASE / "key").exists(), f"run tests/vm/prepare {BASE} first"
    (found,) = (SOURCE / "build/package").glob("recorder_*.deb")
    return found


@pytest.fixture(scope="session")
def bare_machine(package, tmp_path_factory):
    """Debian, and the package in /root. Afterwards its disk is the installed recorder's."""
    disk = tmp_path_factory.mktemp("bare") / "disk.qcow2"
    overlay(disk, BASE / "base.ext4", "raw")
    with Machine(BASE, disk) as machine:
        machine.start()
        print("accelerator:", machine.run("systemd-detect-virt || true").strip())
        machine.put(f"/root/{package.name}", package.read_bytes())
        yield machine
        machine.power_off()
    disk.replace(INSTALLED)


@pytest.fixture(scope="session")
def machine(package, tmp_path_factory):
    """Debian with the recorder installed."""
    disk = tmp_path_factory.mktemp("installed") / "disk.qcow2"
    overlay(disk, INSTALLED, "qcow2")
    with Machine(BASE, disk) as found:
        yield found.start()


@pytest.fixture(scope="session")
def recorder(machine):
    return GuestRecorder(machine)
