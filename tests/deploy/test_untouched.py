"""Tests change nothing of the machine: ./test could not even if they tried, and the programs that
need no sandbox do not try."""
import json
import os
import subprocess
import uuid
from pathlib import Path

import pytest

from places import BUILD, PROGRAMS, SOURCE
from waiting import SECONDS

pytestmark = pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                                reason="there is no machine to spare when running in place")

# Runs a command on a copy-on-write view of the machine, in which only the source tree is real, and
# tells of every file that the view then has of its own: made, changed or (as a device) removed.
CHANGES = r"""
mount -t tmpfs none /boot
mkdir /boot/upper /boot/work /boot/root
mount -t overlay none /boot/root -o lowerdir=/,upperdir=/boot/upper,workdir=/boot/work
mkdir -p "/boot/root$RECORDER_SOURCE"
for folder in /sys /dev "$RECORDER_SOURCE"; do mount --rbind "$folder" "/boot/root$folder"; done
mount -t proc proc /boot/root/proc
chroot /boot/root "$@" >&2 || exit
find /boot/upper -mindepth 1 -printf '%y /%P\n'
"""


def changes_by(*command):
    """What the command leaves outside of the source tree. A folder that is there anyway is none."""
    done = subprocess.run(
        ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--propagation", "private",
         "bash", "-ec", CHANGES, "changes", *command],
        cwd=SOURCE, text=True, capture_output=True, timeout=SECONDS, check=False)
    assert done.returncode == 0, done.stderr[-4000:]
    found = [line.split(" ", 1) for line in done.stdout.splitlines()]
    return {path for kind, path in found if kind != "d" or not Path(path).is_dir()}


def programs_without_sandbox():
    """Unit tests and fuzz targets, each with its arguments but for those that choose one test."""
    listed = subprocess.run(["ctest", "--test-dir", BUILD, "--show-only=json-v1"], text=True,
                            capture_output=True, timeout=SECONDS, check=True).stdout
    commands = [test.get("command", [""]) for test in json.loads(listed)["tests"]]
    return sorted({(program, *[word for word in rest if not word.startswith("--gtest")])
                   for program, *rest in commands if Path(program).parent == PROGRAMS})


@pytest.mark.parametrize("script, left", [
    ("mkdir -p /planted/a && echo x >/planted/a/b", {"/planted", "/planted/a", "/planted/a/b"}),
    ("echo x >>/etc/passwd", {"/etc/passwd"}),
    ("chmod 600 /etc/passwd", {"/etc/passwd"}),
    ("rm /etc/passwd", {"/etc/passwd"}),
    ("mkdir /var/lib/planted", {"/var/lib/planted"}),
    ("touch /root/planted", {"/root/planted"}),
    ("touch /tmp/made-and-removed && rm /tmp/made-and-removed", set()),
    ("cat /etc/passwd", set()),
])
def test_whatever_a_program_leaves_is_seen(script, left):
    assert changes_by("bash", "-c", script) == left


def test_there_are_programs_to_look_at():
    names = [Path(program).name for program, *_ in programs_without_sandbox()]
    assert {"platform_standalone_test", "services_test", "backup_daemon_test"} <= set(names)


@pytest.mark.parametrize("command", programs_without_sandbox(),
                         ids=lambda command: Path(command[0]).name)
def test_a_program_of_tests_leaves_nothing(command):
    assert changes_by(*command) == set()


def untouched(script):
    return subprocess.run([SOURCE / "scripts/untouched", "bash", "-c", script], text=True,
                          capture_output=True, timeout=SECONDS, check=False)


@pytest.mark.parametrize("folder", ["/", "/etc", "/home", "/mnt", "/opt", "/root", "/run", "/srv",
                                    "/usr/local", "/var", "/var/lib"])
def test_the_machine_is_read_only(folder):
    file = Path(folder) / f"untouched-test-{uuid.uuid4()}"
    done = untouched(f"touch {file}")
    assert "Read-only file system" in done.stderr
    assert not file.exists()


@pytest.mark.parametrize("folder", ["/tmp", "/var/tmp"])
def test_temporary_files_are_in_a_folder_of_its_own(folder):
    file = Path(folder) / f"untouched-test-{uuid.uuid4()}"
    done = untouched(f"ls -A {folder} && echo x >{file} && cat {file}")
    assert done.stdout.splitlines()[-1:] == ["x"]
    assert not file.exists()


def test_the_source_tree_is_the_real_one(tmp_path):
    assert untouched(f"echo x >{tmp_path}/file").returncode == 0
    assert (tmp_path / "file").read_text() == "x\n"


def test_a_sandbox_works_inside(tmp_path):
    done = untouched(f"scripts/sandbox --net -- bash -c 'touch /etc/x && echo x >{tmp_path}/file'")
    assert done.returncode == 0, done.stderr
    assert (tmp_path / "file").read_text() == "x\n"


def test_a_tree_below_tmp_is_seen_and_real(tmp_path):
    """As a whole in a /tmp of our own, so that the machine's is left alone."""
    script = f"""
        mount -t tmpfs none /tmp
        mkdir -p "/tmp/a tree"
        cp -r {SOURCE}/scripts "/tmp/a tree"
        cd "/tmp/a tree"
        scripts/untouched bash -c 'ls -A /tmp && pwd && touch made'
        ls -A"""
    done = subprocess.run(["unshare", "--mount", "--propagation", "private", "bash", "-ec", script],
                          text=True, capture_output=True, timeout=SECONDS, check=False)
    assert done.stdout.splitlines() == ["a tree", "/tmp/a tree", "made", "scripts"], done.stderr
