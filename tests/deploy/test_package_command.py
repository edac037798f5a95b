"""What ./package says, leaves and gives up at, with stand-ins for what installs and builds."""
import os
import shutil
import subprocess
from pathlib import Path

import pytest

from other_user import NOBODY
from places import SOURCE
from waiting import SECONDS

STAND_INS = {
    "tree/scripts/install_dependencies": 'echo installing "$@"',
    "bin/dpkg-buildpackage": 'echo "in $PWD:" *; touch ../recorder{,-dbgsym}_1_all.deb'
                             " ../recorder_1_all.changes",
    "bin/lintian": 'echo "looking at ${*: -1}"'}


def stand_in(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("#!/bin/bash\n" + text + "\n")
    path.chmod(0o755)


class Tree:
    """A checkout with the real ./package, in a folder that its stand-ins share."""

    def __init__(self, place):
        for name, text in STAND_INS.items():
            stand_in(place / name, text)
        self.place = place
        self.folder = place / "tree"
        self.built = self.folder / "build/package"
        self.log = self.built / "build.log"
        self.environment = {**os.environ, "PATH": f"{place}/bin:{os.environ['PATH']}"}
        shutil.copy(SOURCE / "package", self.folder)
        for name in ("common.sh", "progress.sh", "debian_source"):
            shutil.copy(SOURCE / "scripts" / name, self.folder / "scripts")
        for name in (".git", "build/release", "deploy/debian"):
            (self.folder / name).mkdir(parents=True)
        (self.folder / "deploy/debian/rules").touch()

    def run(self, *options):
        """Exit status and all that is said."""
        done = subprocess.run([self.folder / "package", *options], text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=SECONDS,
                              env=self.environment)
        return done.returncode, done.stdout


@pytest.fixture(name="tree")
def source_tree(tmp_path):
    for folder in (tmp_path, *tmp_path.parents):
        if folder.stat().st_uid == os.geteuid() and folder != Path("/"):
            folder.chmod(folder.stat().st_mode | 0o111)
    return Tree(tmp_path)


def words_of(line):
    """What a shell makes of it; what stands in quotes depends on the locale's letters."""
    return subprocess.run(["bash", "-c", f"printf '%s\\n' {line}"], text=True, check=True,
                          stdout=subprocess.PIPE, timeout=SECONDS).stdout.splitlines()


def test_it_says_how_to_install_the_package_and_nothing_else(tree):
    assert tree.run() == (0, f"apt install {tree.built}/recorder_1_all.deb\n")
    assert tree.log.read_text().splitlines() == [
        "installing --package", f"in {tree.built}/work/recorder: debian deploy package scripts",
        f"looking at {tree.built}/work/recorder_1_all.changes"]


def test_it_leaves_packages_and_log(tree):
    tree.built.mkdir()
    (tree.built / "recorder_0_all.deb").touch()
    assert tree.run()[0] == 0
    assert {path.name for path in tree.built.iterdir()} == {
        "recorder_1_all.deb", "recorder-dbgsym_1_all.deb", "recorder_1_all.changes", "build.log"}


@pytest.mark.parametrize("program, title", [
    ("tree/scripts/install_dependencies", "packages"), ("tree/scripts/debian_source", "source"),
    ("bin/dpkg-buildpackage", "build"), ("bin/lintian", "lintian")])
def test_a_step_that_fails_names_the_log_and_shows_its_end(tree, program, title):
    stand_in(tree.place / program, "seq 1000; echo at last >&2; exit 3")
    tree.built.mkdir()
    before = tree.built / "recorder_0_all.deb"
    before.touch()
    status, said = tree.run()
    assert (status, [*tree.built.glob("*.deb")]) == (1, [before])
    assert said.splitlines()[-3:] == [
        "1000", "at last",
        f"package: {title}: failed or was interrupted; all of what was said is in {tree.log}"]


def test_an_option_that_it_does_not_know_does_nothing(tree):
    assert tree.run("--fast") == (1, "package: unknown option --fast; see --help\n")
    assert not tree.built.exists()


def test_blanks_and_umlauts_in_the_checkout_s_path_are_kept_from_debians_tools(tree):
    tree.folder = tree.folder.rename(tree.place / "a tree & ümlaut")
    built = tree.folder / "build/package"
    status, said = tree.run()
    assert (status, words_of(said)) == (0, ["apt", "install", f"{built}/recorder_1_all.deb"])
    [building, looking] = (built / "build.log").read_text().splitlines()[1:]
    place = Path(building.split(":")[0].removeprefix("in ")).parent
    assert looking == f"looking at {place}/recorder_1_all.changes"
    assert set(" &ü").isdisjoint(str(place)) and not place.exists()


def test_sudo_leaves_the_tree_to_its_owner(tree):
    for path in (tree.folder, *tree.folder.rglob("*")):
        os.chown(path, NOBODY, NOBODY)
    assert tree.run()[0] == 0
    assert {path.lstat().st_uid for path in (tree.folder, *tree.folder.rglob("*"))} == {NOBODY}
