"""What ./bench says and refuses, with stand-ins for what installs, builds and measures."""
import json
import os
import shutil
import subprocess

import pytest

from places import SOURCE
from waiting import SECONDS

# The last word after --figures is where they go.
STAND_INS = {
    "scripts/install_dependencies": 'touch "${0%/*}/../begun"',
    "scripts/sandbox": 'echo "measuring: $*"; [[ ! -e ${0%/*}/fail ]] || exit 3\n'
                       'echo \'{"figures": []}\' >"${!#}"',
    "tools/cmake": ":"}
PROGRAMS = ["recording_backup.cgi", "console.cgi", "recorderctl", "recorder-logd",
            "recording-backupd"]


def stand_in(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("#!/bin/bash\n" + text + "\n")
    path.chmod(0o755)


def make_build(folder):
    for program in PROGRAMS:
        stand_in(folder / "bin" / program, ":")
    return folder


class Tree:
    """A source tree with the real ./bench."""

    def __init__(self, folder):
        self.folder = folder
        (folder / "scripts").mkdir(parents=True)
        shutil.copy(SOURCE / "bench", folder)
        shutil.copy(SOURCE / "scripts/common.sh", folder / "scripts")
        for name, text in STAND_INS.items():
            stand_in(folder / name, text)
        self.environment = {**os.environ, "PATH": f"{folder}/tools:{os.environ['PATH']}"}
        self.environment.pop("RECORDER_IN_PLACE", None)

    def bench(self, *words, **variables):
        return subprocess.run([self.folder / "bench", *words], text=True, capture_output=True,
                              timeout=SECONDS, check=False, cwd=self.folder, umask=0o022,
                              env={**self.environment, **variables})

    def measured(self, *words):
        """The words that the sandbox got."""
        done = self.bench(*words)
        assert done.returncode == 0, done
        return done.stdout.partition("measuring: ")[2]

    def refusal(self, *words, **variables):
        """The one line that is said in place of measuring."""
        done = self.bench(*words, **variables)
        assert (done.returncode, done.stdout) == (1, ""), done
        assert done.stderr.startswith("bench: ") and done.stderr.count("\n") == 1, done
        assert not (self.folder / "begun").exists()
        return done.stderr[len("bench: "):-1]


@pytest.fixture(name="tree")
def a_tree(tmp_path):
    return Tree(tmp_path / "tree")


def test_help_names_every_option_and_measures_nothing(tree):
    done = tree.bench("--help")
    assert (done.returncode, done.stderr) == (0, "")
    for word in ("copy", "look", "compare A B", "--quick", "--only", "--json", "--in-place"):
        assert word in done.stdout
    assert not (tree.folder / "begun").exists()


@pytest.mark.parametrize("words, said", [
    (["--nonsense"], "unknown option --nonsense; see --help"),
    (["nonsense"], "unknown option nonsense; see --help"),
    (["--only"], "--only needs a value; see --help"),
    (["--json"], "--json needs a value; see --help"),
    (["--json", ""], "--json needs the name of a file; see --help"),
    (["compare"], "compare needs two builds; see --help"),
    (["compare", "."], "compare needs two builds; see --help"),
    (["compare", "absent", "."], "absent is no folder, so no build and no checkout")])
def test_a_wrong_command_line_gets_one_clear_line(tree, words, said):
    assert tree.refusal(*words) == said


# --- the file of figures -------------------------------------------------------------------------


@pytest.mark.parametrize("name, why", [
    ("absent/figures", "No such file or directory"), ("scripts", "it is not a file"),
    ("bench/figures", "Not a directory"), ("pipe", "it is not a file")])
def test_a_file_that_cannot_be_written_is_refused_before_anything_is_measured(tree, name, why):
    os.mkfifo(tree.folder / "pipe")  # no device: a mistake of ./bench's, as root, would replace it
    assert tree.refusal("--json", name) == f"cannot write {name}: {why}"


def test_figures_are_written_as_a_file_that_its_owner_can_share(tree):
    (tree.folder / "figures.json").write_text("old")
    tree.measured("--json", "figures.json")
    assert json.loads((tree.folder / "figures.json").read_text()) == {"figures": []}
    assert (tree.folder / "figures.json").stat().st_mode & 0o777 == 0o644
    assert list(tree.folder.glob("figures.json.*")) == []
    assert list((tree.folder / "build").glob("bench.*")) == []


def test_a_run_that_fails_leaves_the_file_as_it_was_and_nothing_beside_it(tree):
    (tree.folder / "figures.json").write_text("old")
    (tree.folder / "scripts/fail").touch()
    assert tree.bench("--json", "figures.json").returncode == 3
    assert (tree.folder / "figures.json").read_text() == "old"
    assert list(tree.folder.glob("figures.json.*")) == []
    assert list((tree.folder / "build").glob("bench.*")) == []


# --- what is measured ----------------------------------------------------------------------------


def test_what_is_asked_for_is_measured(tree):
    assert " requests log_query --figures " in tree.measured()
    assert " look --quick --only=4 cameras --figures " in tree.measured(
        "look", "--quick", "--only", "4 cameras")


def test_the_state_of_requests_that_flush_lies_on_a_disk(tree):
    assert f"--state {tree.folder}/build/bench." in tree.measured()
    assert "--state" not in tree.measured("copy")


def test_builds_are_compared_by_their_folder_or_their_checkout(tree, tmp_path):
    build = make_build(tmp_path / "a build")
    checkout = tmp_path / "checkout"
    make_build(checkout / "build/release")
    said = tree.measured("compare", build, checkout)
    assert f"compare --builds {build} {checkout}/build/release" in said
    assert f"--bind {build} --bind {checkout}/build/release" in said


@pytest.mark.parametrize("program", PROGRAMS)
def test_a_build_that_lacks_a_program_is_refused(tree, tmp_path, program):
    build = make_build(tmp_path / "build")
    (build / "bin" / program).unlink()
    assert tree.refusal("compare", build, build) == (
        f'{build} is not built: there is no {build}/bin/{program}; build the target "programs"')


def test_builds_are_not_compared_in_place(tree, tmp_path):
    build = make_build(tmp_path / "build")
    said = "compare needs private namespaces: each build's services have a network of their own"
    assert tree.refusal("compare", build, build, "--in-place") == said
    assert tree.refusal("compare", build, build, RECORDER_IN_PLACE="1") == said
