"""How exposed the units leave each process, by systemd's own reckoning."""
import re
import shutil
import subprocess

import pytest

from places import BUILD
from waiting import SECONDS

pytestmark = pytest.mark.skipif(shutil.which("systemd-analyze") is None,
                                reason="there is no systemd here")


@pytest.fixture(scope="module", name="units")
def installed_units(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("prefix")
    subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, timeout=SECONDS,
                   stdout=subprocess.DEVNULL)
    return prefix / "lib/systemd/system"


def exposure(unit):
    done = subprocess.run(["systemd-analyze", "security", "--offline=yes", "--no-pager", unit],
                          capture_output=True, text=True, timeout=SECONDS, check=True)
    return float(re.search(r"Overall exposure level for \S+: ([\d.]+)", done.stdout)[1])


@pytest.mark.parametrize("service, most", [
    ("recorder-logd", 1.5),
    ("recording-backupd", 2.0),
])
def test_a_process_is_no_more_exposed_than_it_must_be(units, service, most):
    assert exposure(units / f"{service}.service") <= most
