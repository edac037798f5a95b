"""Installing packages leaves no service running or enabled, however the installation ends."""
import os
import signal
import subprocess
from pathlib import Path

import pytest

from places import SOURCE
from waiting import SECONDS, wait_until

POLICY = Path("/usr/sbin/policy-rc.d")
NOTES = Path("/var/lib/misc/recorder-packages")
OF_PACKAGE = {"samba": ["smbd", "nmbd", "samba-ad-dc"], "prometheus": ["prometheus"]}
SERVICES = sum(OF_PACKAGE.values(), [])

# Stands in for apt-get: tells where it is and, where it is told to, waits to be let go on.
APT_GET = r"""#!/bin/bash
trap 'exit 100' INT TERM
case "$*" in
    *update) phase=update ;;
    *--download-only*) phase=download ;;
    *) phase=install ;;
esac
touch "$PLAY/$phase"
while [[ -e $PLAY/hold-$phase ]]; do sleep 0.02; done
[[ $phase == install ]] || exit 0
touch "$PLAY/everything" /etc/init.d/{smbd,nmbd,samba-ad-dc,prometheus}
[[ -x /usr/sbin/policy-rc.d ]] || touch "$PLAY/started"
touch "$PLAY"/enabled-{smbd,nmbd,samba-ad-dc,prometheus}
for word; do
    case $word in DPkg::Post-Invoke::=*) sh -c "${word#*::=}" ;; esac
done
touch "$PLAY/end"
"""
DPKG_QUERY = r"""#!/bin/bash
[[ -e $PLAY/everything ]] || { echo "installed $(cat "$PLAY/there")"; exit 1; }
for word; do echo "installed $word"; done
"""
UPDATE_RC = '#!/bin/bash\n[[ $2 == disable ]] && rm "$PLAY/enabled-$1"\n'
STAND_INS = {"apt-get": APT_GET, "dpkg-query": DPKG_QUERY, "update-rc.d": UPDATE_RC,
             "dpkg": "#!/bin/bash\n"}


class Installation:
    """Runs of the script on a machine that has no package of ours; `folder` is the stand-ins'."""

    def __init__(self, folder):
        self.folder = folder
        for name, text in STAND_INS.items():
            (folder / name).write_text(text)
            (folder / name).chmod(0o755)
        (folder / "there").touch()

    def start(self, option="--demo"):
        return subprocess.Popen(
            [SOURCE / "scripts/install_dependencies", option], start_new_session=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
            env={**os.environ, "PLAY": str(self.folder),
                 "PATH": f"{self.folder}:{os.environ['PATH']}"})

    def start_until(self, phase):
        """Runs to this phase of apt's, and stays there."""
        (self.folder / f"hold-{phase}").touch()
        process = self.start()
        self.wait_for(phase)
        return process

    def wait_for(self, name):
        wait_until((self.folder / name).exists, name)

    def let_go(self, phase):
        (self.folder / f"hold-{phase}").unlink()

    def has(self, name):
        return (self.folder / name).exists()

    def enabled(self):
        return [service for service in SERVICES if self.has(f"enabled-{service}")]


def finish(process):
    said = process.communicate(timeout=SECONDS)[0]
    return process.returncode, said


def nothing_is_left():
    return not POLICY.exists() and not NOTES.exists()


@pytest.fixture(name="installation")
def on_a_clean_machine(tmp_path):
    for service in SERVICES:
        Path("/etc/init.d", service).unlink(missing_ok=True)
    for path in (POLICY, NOTES):
        path.unlink(missing_ok=True)
    return Installation(tmp_path)


def test_services_are_held_back_meanwhile_and_disabled_afterwards(installation):
    process = installation.start_until("install")
    assert POLICY.stat().st_mode & 0o777 == 0o755
    installation.let_go("install")
    assert finish(process)[0] == 0
    assert installation.has("end") and not installation.has("started")
    assert installation.enabled() == []
    assert nothing_is_left()


@pytest.mark.parametrize("number, status", [(signal.SIGINT, 130), (signal.SIGTERM, 143)])
@pytest.mark.parametrize("phase", ["update", "download"])
def test_a_signal_before_anything_is_unpacked_ends_it(installation, phase, number, status):
    process = installation.start_until(phase)
    os.killpg(process.pid, number)
    assert finish(process)[0] == status
    assert not installation.has("install")
    assert nothing_is_left()


@pytest.mark.parametrize("number, status", [(signal.SIGINT, 130), (signal.SIGTERM, 143)])
def test_a_signal_while_packages_are_unpacked_ends_it_afterwards(installation, number, status):
    process = installation.start_until("install")
    os.killpg(process.pid, number)
    installation.let_go("install")
    assert finish(process)[0] == status
    assert installation.has("end")
    assert installation.enabled() == []
    assert nothing_is_left()


def test_when_the_script_is_killed_apt_takes_everything_back(installation):
    process = installation.start_until("install")
    process.kill()
    process.wait(SECONDS)
    installation.let_go("install")
    installation.wait_for("end")
    assert installation.enabled() == []
    assert nothing_is_left()


@pytest.mark.parametrize("next_start", ["--programs", "--demo", "--undo"])
def test_when_all_is_killed_the_next_start_takes_everything_back(installation, next_start):
    process = installation.start_until("install")
    os.killpg(process.pid, signal.SIGKILL)
    finish(process)
    for name in (*(f"enabled-{service}" for service in SERVICES), "everything"):
        (installation.folder / name).touch()  # that far it came
    for service in SERVICES:
        Path("/etc/init.d", service).touch()
    assert POLICY.exists()
    assert finish(installation.start(next_start)) == (0, "")
    assert installation.enabled() == []
    assert nothing_is_left()


def test_a_policy_of_the_machine_s_own_stays(installation):
    POLICY.write_text("#!/bin/sh\nexit 101\n")
    assert finish(installation.start())[0] == 0
    assert POLICY.read_text() == "#!/bin/sh\nexit 101\n"
    assert installation.enabled() == []
    POLICY.unlink()


@pytest.mark.parametrize("package", OF_PACKAGE)
def test_what_was_there_stays_as_it_is(installation, package):
    (installation.folder / "there").write_text(package)
    assert finish(installation.start())[0] == 0
    assert installation.enabled() == OF_PACKAGE[package]
    assert nothing_is_left()


def test_nothing_is_done_where_nothing_is_missing(installation):
    (installation.folder / "everything").touch()
    assert finish(installation.start()) == (0, "")
    assert not installation.has("update")
