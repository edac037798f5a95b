"""What ./run says and when it gives up, with stand-ins for what installs, builds and serves."""
import os
import pty
import shutil
import subprocess
from pathlib import Path

import pytest

from other_user import NOBODY
from places import SOURCE
from waiting import SECONDS

STAND_INS = {
    "install_dependencies": 'touch "${0%/*}/../../installed"\necho installing; echo "$@"',
    "build": 'for number in 1 2 3; do echo "[$number/3] Building $number"; done',
    "sandbox": 'echo "as $(id -u): ${*: -8}"'}
RIGHTLESS = 'echo "sudo: a password is required" >&2; exit 1'


def stand_in(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("#!/bin/bash\n" + text + "\n")
    path.chmod(0o755)


class Tree:
    """A source tree with the real ./run, and a state folder that is not there yet."""

    def __init__(self, folder):
        self.folder = folder
        self.state = folder.parent / "state"
        self.log = folder / "build/run.log"
        self.environment = dict(os.environ)
        (folder / "scripts").mkdir(parents=True)
        shutil.copy(SOURCE / "run", folder)
        for name in ("common.sh", "progress.sh"):
            shutil.copy(SOURCE / "scripts" / name, folder / "scripts")
        for name, text in STAND_INS.items():
            stand_in(folder / "scripts" / name, text)

    def give_to(self, user):
        for path in (self.folder, *self.folder.rglob("*")):
            os.chown(path, user, user)

    def command(self, *options):
        return [self.folder / "run", "--state", self.state, *options]

    def run(self, *options, before=(), **kinds):
        """Exit status and all that is said."""
        done = subprocess.run([*before, *self.command(*options)], text=True, env=self.environment,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=SECONDS,
                              check=False, **kinds)
        return done.returncode, done.stdout

    def at_terminal(self):
        """What a terminal is sent."""
        master, slave = pty.openpty()
        with subprocess.Popen(self.command(), stdout=slave, stderr=slave, stdin=slave,
                              env=self.environment) as process:
            os.close(slave)
            said = b""
            while part := read(master):
                said += part
            process.wait(SECONDS)
        os.close(master)
        return said.decode()

    def was_installed(self):
        return (self.folder.parent / "installed").exists()


def read(terminal):
    try:
        return os.read(terminal, 4096)
    except OSError:  # nobody has it open any more
        return b""


@pytest.fixture(name="tree")
def source_tree(tmp_path):
    for folder in (tmp_path, *tmp_path.parents):
        if folder.stat().st_uid == os.geteuid() and folder != Path("/"):
            folder.chmod(folder.stat().st_mode | 0o111)
    return Tree(tmp_path / "tree")


def test_it_says_where_the_state_is_and_little_else(tree):
    status, said = tree.run()
    assert status == 0
    lines = said.splitlines()
    assert lines[0] == f"state folder: {tree.state}"
    assert len(lines) == 2 and lines[1].startswith("as 0:")
    assert lines[1].endswith(f"--demo {tree.state} --share-port 10445")
    assert tree.log.read_text().splitlines() == [
        "installing", "--demo", "[1/3] Building 1", "[2/3] Building 2", "[3/3] Building 3"]


def test_without_the_demo_nothing_of_it_is_installed(tree):
    status, said = tree.run("--no-demo")
    assert status == 0
    assert "--demo" not in said
    assert tree.log.read_text().splitlines()[:2] == ["installing", "--programs"]


def test_a_terminal_sees_progress_in_place(tree):
    said = tree.at_terminal()
    shown = said.split("\n", 1)[0].split("\r\x1b[K")
    assert shown[:4] == ["", "packages: installing", "packages: --demo", ""]
    assert shown[4:-1] == ["programs: 1 of 3 files", "programs: 2 of 3 files",
                           "programs: 3 of 3 files"]


@pytest.mark.parametrize("step, title", [("install_dependencies", "packages"),
                                         ("build", "programs")])
def test_a_step_that_fails_names_the_log_and_shows_its_end(tree, step, title):
    stand_in(tree.folder / "scripts" / step, "seq 1000; echo at last >&2; exit 3")
    status, said = tree.run()
    assert status == 1
    assert said.splitlines() == [
        *(str(number) for number in range(987, 1001)), "at last",
        f"run: {title}: failed or was interrupted; all of what was said is in {tree.log}"]
    assert "\n1\n2\n3\n" in "\n" + tree.log.read_text()


# --- other users ----------------------------------------------------------------------------------

def owners(*folders):
    return {path.lstat().st_uid for folder in folders for path in (folder, *folder.rglob("*"))}


def test_sudo_leaves_tree_and_state_to_whoever_called_it(tree):
    tree.give_to(NOBODY)
    tree.folder.parent.chmod(0o777)
    tree.environment.update(SUDO_UID=str(NOBODY), SUDO_GID=str(NOBODY))
    status, said = tree.run()
    assert status == 0 and "as 0:" in said
    assert owners(tree.folder, tree.state) == {NOBODY}


def test_a_state_folder_that_only_root_can_make_is_the_caller_s_all_the_same(tree):
    tree.give_to(NOBODY)
    tree.environment.update(SUDO_UID=str(NOBODY), SUDO_GID=str(NOBODY))
    assert tree.run()[0] == 0
    assert owners(tree.state) == {NOBODY}
    assert tree.state.stat().st_mode & 0o777 == 0o700


def test_the_default_state_is_in_the_home_of_whoever_called_sudo(tree):
    with open("/etc/passwd", "a") as accounts:  # of the sandbox
        accounts.write("anna:x:4711:4711::/home/anna:/bin/bash\n")
    tree.environment.update(SUDO_UID="4711", SUDO_GID="4711")
    assert "(default: /home/anna/.local/state/recorder)" in tree.run("--help")[1]


def test_who_may_not_become_root_learns_it_before_anything_is_done(tree):
    stand_in(tree.folder.parent / "bin/sudo", RIGHTLESS)
    tree.environment["PATH"] = f"{tree.folder.parent}/bin:{tree.environment['PATH']}"
    tree.give_to(NOBODY)
    as_nobody = ["setpriv", "--reuid", str(NOBODY), "--regid", str(NOBODY), "--clear-groups"]
    assert tree.run(before=as_nobody) == (
        1, "run: needs root, and sudo says: sudo: a password is required\n")
    assert not tree.was_installed()


def test_a_state_folder_of_a_user_without_a_name_is_refused_where_the_demo_needs_one(tree):
    tree.state.mkdir()
    os.chown(tree.state, 4712, 4712)
    assert tree.run() == (1, f"run: user 4712, who owns {tree.state}, has no name, which the "
                             "demo's share needs; use --no-demo\n")
    assert not tree.was_installed()
    assert tree.run("--no-demo")[0] == 0


# --- places that cannot be written ----------------------------------------------------------------

@pytest.fixture(name="mounted")
def mounts():
    """Mounts, until the test's end: mounted(source or file system, folder, options)."""
    done = []

    def mount(*words):
        subprocess.run(["mount", *words], check=True, timeout=SECONDS)
        done.append(words[-1])

    yield mount
    for folder in reversed(done):
        subprocess.run(["umount", folder], check=True, timeout=SECONDS)


def test_a_read_only_tree_is_told_in_one_line(tree, mounted):
    mounted("--bind", tree.folder, tree.folder)
    subprocess.run(["mount", "-o", "remount,bind,ro", tree.folder], check=True, timeout=SECONDS)
    assert tree.run() == (1, f"run: cannot make {tree.folder}/build: Read-only file system\n")


def test_a_full_disk_is_told_in_one_line(tree, mounted):
    build = tree.folder / "build"
    build.mkdir()
    mounted("-t", "tmpfs", "-o", "size=1M", "tmpfs", build)
    subprocess.run(f"head -c 2M /dev/zero >{build}/filler", shell=True, check=False,
                   stderr=subprocess.DEVNULL)
    assert tree.run() == (1, f"run: cannot write to {build}: No space left on device\n")
    assert [path.name for path in build.iterdir()] == ["filler"]


def test_too_little_room_is_told_in_one_line(tree, mounted):
    tree.state.mkdir()
    mounted("-t", "tmpfs", "-o", "size=3M", "tmpfs", tree.state)
    assert tree.run() == (1, f"run: {tree.state} has 3 MiB free, and 32 MiB are needed\n")
    assert not tree.was_installed()


# --- names of folders -----------------------------------------------------------------------------

PROJECT = """cmake_minimum_required(VERSION 3.25)
project(small C)
add_library(small STATIC small.c)
target_compile_options(small PRIVATE -include ${PROJECT_SOURCE_DIR}/small.h)
add_custom_target(programs DEPENDS small)
"""


def build(folder):
    done = subprocess.run([folder / "scripts/build"], text=True, timeout=SECONDS, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          env={**os.environ, "CCACHE_DISABLE": "1"})
    assert done.returncode == 0, done.stdout
    return done.stdout


@pytest.mark.parametrize("name", ["plain", "a & b's \"c\" ü", "1;2|3", "(x) <y> `z` $HOME #"])
def test_a_tree_of_any_name_is_built_once(tmp_path, name):
    folder = tmp_path / name
    (folder / "scripts").mkdir(parents=True)
    for file in ("common.sh", "build"):
        shutil.copy(SOURCE / "scripts" / file, folder / "scripts")
    shutil.copy(SOURCE / "CMakePresets.json", folder)
    (folder / "CMakeLists.txt").write_text(PROJECT)
    (folder / "small.c").write_text("int two(void) { return TWO; }\n")
    (folder / "small.h").write_text("#define TWO 2\n")
    assert "Building C object" in build(folder)
    assert "no work to do" in build(folder)
    (folder / "small.h").write_text("#define TWO 3\n")
    assert "Building C object" in build(folder)
    moved = tmp_path / "moved"
    folder.rename(moved)
    build(moved)
    assert "no work to do" in build(moved)
