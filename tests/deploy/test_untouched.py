"""Tests change nothing of the machine: ./test could not even if they tried, and the programs that
need no sandbox do not try."""
import json
import os
import shlex
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
umask 022
mount -t tmpfs none /boot
mkdir /boot/upper /boot/work /boot/root
mkdir -m 1777 /boot/shm
mount -t overlay none /boot/root -o lowerdir=/,upperdir=/boot/upper,workdir=/boot/work
mkdir -p "/boot/root$RECORDER_SOURCE"
for folder in /sys /dev "$RECORDER_SOURCE"; do mount --rbind "$folder" "/boot/root$folder"; done
mount --bind /boot/shm /boot/root/dev/shm
mount -t proc proc /boot/root/proc
chroot /boot/root "$@" >&2 || exit
find /boot/upper -mindepth 1 -printf '%y /%P\n'
find /boot/shm -mindepth 1 -printf '%y /dev/shm/%P\n'
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
    ("touch /dev/shm/planted", {"/dev/shm/planted"}),
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


def bash(script, *before):
    return subprocess.run([*before, "bash", "-ec", script], cwd=SOURCE, text=True,
                          capture_output=True, timeout=SECONDS, check=False)


def untouched(script):
    return bash(script, SOURCE / "scripts/untouched")


def with_mounts(script):
    """With an empty /mnt, and mounts that only the script and what it starts see."""
    return bash(f"mount -t tmpfs none /mnt\n{script}",
                "unshare", "--mount", "--propagation", "private")


@pytest.mark.parametrize("folder", ["/", "/dev", "/etc", "/home", "/mnt", "/opt", "/root", "/run",
                                    "/srv", "/usr/local", "/var", "/var/lib"])
def test_the_machine_is_read_only(folder):
    file = Path(folder) / f"untouched-test-{uuid.uuid4()}"
    done = untouched(f"touch {file}")
    assert "Read-only file system" in done.stderr
    assert not file.exists()


@pytest.mark.parametrize("name", ["plain", "a blank", "ümlaut", r"back\slash", "line\nbreak"])
def test_a_mount_is_read_only_whatever_its_name(name):
    mounted = shlex.quote(f"/mnt/{name}")
    done = with_mounts(f"mkdir {mounted}; mount -t tmpfs none {mounted}\n"
                       f"scripts/untouched touch {mounted}/file")
    assert done.returncode == 1 and "Read-only file system" in done.stderr


@pytest.mark.parametrize("after", ["", "mkdir /mnt/a"])
def test_a_mount_beneath_another_stops_nothing(after):
    """Also where there is a folder of its name, which is the other mount's."""
    done = with_mounts(f"""
        mkdir /mnt/a; mount -t tmpfs none /mnt/a
        mount -t tmpfs none /mnt; {after}
        scripts/untouched touch /mnt/file /mnt/a/file || scripts/untouched echo goes on""")
    assert done.stdout == "goes on\n", done.stderr
    assert "cannot touch '/mnt/file': Read-only file system" in done.stderr


def test_a_mount_that_stays_writable_is_not_put_up_with():
    """As one would where the system refuses to change it; here a stand-in for mount does."""
    done = with_mounts("""
        mkdir /mnt/a; mount -t tmpfs none /mnt/a
        echo '#!/bin/bash
            if [[ $* == *ro*/mnt/a ]]; then echo refused; exit 32; fi
            PATH=${PATH#*:} exec mount "$@"' >/mnt/mount
        chmod +x /mnt/mount
        PATH=/mnt:$PATH scripts/untouched echo goes on""")
    assert (done.returncode, done.stdout, done.stderr) == (1, "", "untouched: refused\n")


@pytest.mark.parametrize("folder", ["/tmp", "/var/tmp", "/dev/shm"])
def test_temporary_files_are_in_a_folder_of_its_own(folder):
    file = Path(folder) / f"untouched-test-{uuid.uuid4()}"
    done = untouched(f"echo x >{file} && cat {file}")
    assert done.stdout == "x\n"
    assert not file.exists()


@pytest.fixture(name="real")
def file_in_the_source_tree(tmp_path):
    """Of a name that a shell would take for two."""
    return tmp_path / "a file"


def test_the_source_tree_is_the_real_one(real):
    assert untouched(f"echo x >{shlex.quote(str(real))}").returncode == 0
    assert real.read_text() == "x\n"


def test_a_sandbox_works_inside(real):
    script = shlex.quote(f"touch /etc/x && echo x >{shlex.quote(str(real))}")
    done = untouched(f"scripts/sandbox --net -- bash -c {script}")
    assert done.returncode == 0, done.stderr
    assert real.read_text() == "x\n"


def test_a_tree_below_tmp_is_seen_and_real():
    """As a whole in a /tmp of our own, so that the machine's is left alone."""
    done = bash("""
        mount -t tmpfs none /tmp
        mkdir -p "/tmp/a tree"
        cp -r scripts "/tmp/a tree"
        cd "/tmp/a tree"
        scripts/untouched bash -c 'ls -A /tmp && pwd && touch made'
        ls -A""", "unshare", "--mount", "--propagation", "private")
    assert done.stdout.splitlines() == ["a tree", "/tmp/a tree", "made", "scripts"], done.stderr
