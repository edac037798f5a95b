"""What ./test says and leaves, with real runs of ctest on tests that have been built already."""
import os
import pty
import re
import shlex
import shutil
import signal
import subprocess
import uuid
from pathlib import Path

import pytest

from places import SOURCE
from waiting import SECONDS, wait_until

GOOD = 'add_test(good "true")\n'
SKIPPED = ('add_test(passed_over "echo" "SKIPPED here")\n'
           'set_tests_properties(passed_over PROPERTIES SKIP_REGULAR_EXPRESSION "SKIPPED")\n')
LONG = 'add_test(hours "true")\nset_tests_properties(hours PROPERTIES LABELS "end_to_end;long")\n'
MACHINE = 'add_test(boot "true")\nset_tests_properties(boot PROPERTIES LABELS "end_to_end;vm")\n'
LATE = 'add_test(late "sleep" "1000")\nset_tests_properties(late PROPERTIES TIMEOUT 1)\n'
MISSING = 'add_test(missing "/nowhere/program")\n'


def bad(name, script="echo said by $0; exit 3"):
    return f'add_test({name} "bash" "-c" "{script}" "{name}")\n'


def stand_in(path, text=""):
    """A program that does no more than this, successfully."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(f"#!/bin/bash\n{text}\n")
    path.chmod(0o755)


class Tree:
    """A tree where nothing is to be installed, prepared or built. Tests are the contents of a build
    folder's list of tests."""

    def __init__(self, folder):
        folder.mkdir()
        self.folder = folder
        self.log = folder / "build/test.log"
        shutil.copy(SOURCE / "test", folder)
        (folder / "scripts").mkdir()
        for name in ("build", "common.sh", "failed_tests", "progress.sh", "untouched"):
            shutil.copy(SOURCE / "scripts" / name, folder / "scripts")
        for name in ("scripts/install_dependencies", "scripts/sandbox",
                     "tests/kernel_mount/prepare", "tests/vm/prepare", "tools/cmake"):
            stand_in(folder / name)

    def start(self, release, asan=GOOD, arguments=(), **kinds):
        for preset, tests in (("release", release), ("asan", asan)):
            folder = self.folder / "build" / preset
            folder.mkdir(parents=True, exist_ok=True)
            (folder / "CTestTestfile.cmake").write_text(tests)
        path = f"{self.folder}/tools:{os.environ['PATH']}"
        return subprocess.Popen([self.folder / "test", *arguments], stderr=subprocess.STDOUT,
                                env={**os.environ, "PATH": path, "COLUMNS": "80"}, **kinds)

    def run(self, *tests, **kinds):
        """Exit status and lines."""
        with self.start(*tests, **kinds, text=True, errors="replace",
                        stdout=subprocess.PIPE) as process:
            said, _ = process.communicate(timeout=SECONDS)
        return process.returncode, said.splitlines()


@pytest.fixture(name="tree")
def fresh_tree(tmp_path):
    return Tree(tmp_path / "a tree")


@pytest.fixture(name="run")
def its_run(tree):
    return tree.run


def test_without_a_failure_the_counts_are_all(run):
    status, lines = run(release=GOOD + SKIPPED)
    assert status == 0
    assert lines[-2:] == ["1 skipped", "2 passed, 0 failed"]
    assert not [line for line in lines if line.startswith("failed in")]


def test_other_users_may_read_what_tests_make_whatever_the_umask(run):
    looking = 'add_test(looking "bash" "-c" "[[ $(umask) == 0022 ]]")\n'
    status, lines = run(looking, umask=0o077)
    assert status == 0, lines


def test_names_of_what_failed_come_right_before_the_counts(run):
    status, lines = run(release=GOOD + SKIPPED + bad("first"), asan=bad("second") + GOOD)
    assert status == 1
    assert [line.partition(",")[0] for line in lines[-4:-2]] == [
        "failed in release: first", "failed in asan: second"]
    assert lines[-2:] == ["1 skipped", "2 passed, 2 failed"]


@pytest.mark.parametrize("count, left_out", [(400, []), (1000, ["(600 lines left out)"])])
def test_all_that_a_failed_test_said_comes_before_up_to_a_bound(run, count, left_out):
    _, lines = run(release=bad("talker", f"seq {count}; exit 1"))
    shown = lines[lines.index("--- what talker said (release)") + 1:-2]
    assert shown == [*left_out, *(str(number) for number in range(count - 399, count + 1))]


def test_what_took_too_long_and_what_is_not_there_is_named(run):
    status, lines = run(release=GOOD + LATE, asan=MISSING)
    assert status == 1
    assert [line.partition(",")[0] for line in lines if line.startswith("failed in")] == [
        "failed in release: late", "failed in asan: missing"]


def test_bytes_that_no_terminal_shows_are_shown_as_numbers(run):
    _, lines = run(release=bad("rude", r"printf 'a\\033b\\377c\\n'; exit 1"))
    assert "a[NON-XML-CHAR-0x1B]b[NON-UTF-8-BYTE-0xFF]c" in lines[lines.index(
        "--- what rude said (release)"):]


def test_many_failures_are_named_up_to_a_bound(run):
    _, lines = run(release="".join(bad(f"bad_{number}") for number in range(60)))
    end = lines[lines.index("--- what bad_0 said (release)"):]
    assert len([line for line in end if line.startswith("said by")]) == 50
    assert len([line for line in end if line.startswith("failed in release: bad_")]) == 50
    assert end[-2:] == ["and 10 more", "1 passed, 60 failed"]


@pytest.mark.parametrize("arguments, passed", [
    ((), 2), (("-LE", "unheard of"), 2), (("-L", "long"), 1), (("-L", "vm"), 1),
    (("-L", "long|vm"), 2), (("-L", "end_to_end"), 0),
    (("-L", "long", "-LE", "end_to_end"), 0), (("-LE", "unheard of", "-L", "long"), 1),
    (("-L", "end_to_end", "-L", "vm"), 1)])
def test_what_takes_long_is_left_out_unless_it_is_asked_for(run, arguments, passed):
    _, lines = run(release=GOOD + LONG + MACHINE, arguments=arguments)
    assert lines[-1].startswith(f"{passed} passed, ")


def test_no_test_of_that_name_is_no_success(run):
    status, lines = run(release=GOOD, arguments=["-R", "nosuchtest"])
    assert status == 1
    assert "test: there is no such test: -R nosuchtest" in lines
    assert lines[-1] == "0 passed, 1 failed"


def test_a_name_in_one_of_the_builds_is_enough(run):
    status, lines = run(release=GOOD + bad("other"), asan=bad("other"), arguments=["-R", "good"])
    assert (status, lines[-1]) == (0, "1 passed, 0 failed")


@pytest.mark.parametrize("arguments", [["--nonsense"], ["-X"], ["task_list"],
                                       ["-R", "x", "--typo"]])
def test_an_unknown_option_fails_in_one_line_at_once(run, arguments):
    status, lines = run(release=GOOD, arguments=arguments)
    assert status == 1
    assert lines == [f"test: unknown option {arguments[-1]}; see --help"]


def test_an_option_without_its_value_fails_in_one_line(run):
    assert run(release=GOOD, arguments=["-R"]) == (1, ["test: -R needs a value; see --help"])


# --- what is said when all is well ----------------------------------------------------------------

def without_times(lines):
    return [re.sub(r"\b[0-9]+ s$", "T s", line) for line in lines]


def test_when_all_is_well_a_handful_of_lines_is_said(run):
    _, lines = run(release="".join(GOOD.replace("good", f"good_{at}") for at in range(500)))
    assert without_times(lines) == [
        "packages: T s", "build/release: T s", "build/asan: T s",
        *(f"tests of build/release: {count} of 500 tests" for count in (125, 250, 375)),
        "tests of build/release: 500 in T s", "tests of build/asan: 1 in T s",
        "all of what was said: build/test.log", "501 passed, 0 failed"]


def test_all_of_what_was_said_is_in_the_log(tree):
    stand_in(tree.folder / "scripts/install_dependencies", "echo installing here")
    stand_in(tree.folder / "tools/cmake", "echo building here")
    stand_in(tree.folder / "tests/kernel_mount/prepare", "echo preparing here")
    tree.run(release=GOOD + bad("talker", "seq 1000; exit 1"))
    log = tree.log.read_text()
    assert [line for line in log.splitlines() if line.endswith("ing here")] == [
        "installing here", "building here", "building here", "preparing here"]
    assert re.search("[12]/2 Test #1: good", log)  # whichever of the two ended first
    assert "\n1\n2\n3\n" in log


def test_the_log_is_the_last_run_s(tree):
    tree.run(release=bad("talker"))
    tree.run(release=GOOD)
    assert "talker" not in tree.log.read_text()


@pytest.mark.parametrize("option", ["-V", "-VV", "--verbose"])
def test_whoever_wants_to_see_everything_sees_it(tree, option):
    _, lines = tree.run(release='add_test(talker "echo" "some words")\n', arguments=[option])
    assert [line for line in lines if line.endswith(": some words")]
    assert ": some words\n" in tree.log.read_text()


def test_a_terminal_sees_progress_in_place(tree):
    stand_in(tree.folder / "tools/cmake", 'echo "[1/2] Building x"')
    master, slave = pty.openpty()
    with tree.start(GOOD + bad("second"), stdout=slave, stdin=slave) as process:
        os.close(slave)
        said = b""
        try:
            while part := os.read(master, 4096):
                said += part
        except OSError:  # the last of the other side is gone
            pass
        process.wait(SECONDS)
    os.close(master)
    shown = said.decode().split("\r\x1b[K")
    for line in ("build/release: 1 of 2 files", "tests of build/release: 1 of 2 tests",
                 "tests of build/release: 2 of 2 tests", "tests of build/asan: 1 of 1 tests"):
        assert line in shown


def test_a_build_that_fails_shows_its_end_and_names_the_log(tree):
    stand_in(tree.folder / "tools/cmake", "seq 1000; echo at last >&2; exit 3")
    status, lines = tree.run(release=GOOD)
    assert status == 1
    assert "at last" in lines
    assert lines[-1] == ("test: build/release: failed or was interrupted; all of what was said is "
                         f"in {tree.log}")
    assert len(lines) < 80


def test_an_interruption_ends_the_tests(tree):
    """As at a terminal, where the signal goes to all of the process group. ./test ends when the
    last that might still speak has ended."""
    begun = tree.folder / "build/begun"
    tests = bad("endless", f"touch {shlex.quote(str(begun))}; sleep 1000")
    with tree.start(tests, text=True, stdout=subprocess.PIPE, start_new_session=True) as process:
        wait_until(begun.exists, "the test's start")
        os.killpg(process.pid, signal.SIGINT)
        said, _ = process.communicate(timeout=SECONDS)
    assert process.returncode == 130
    assert said.splitlines()[3:] == ["test: interrupted; what was said until then is in "
                                     f"{tree.log}"]


# --- the machine ----------------------------------------------------------------------------------

@pytest.mark.skipif(os.environ.get("RECORDER_IN_PLACE") == "1",
                    reason="in place tests are on the machine itself")
@pytest.mark.parametrize("place, said", [
    ("/", "Read-only file system"), ("/etc", "Read-only file system"),
    ("/var/lib", "Read-only file system"), ("/tmp", "made"), ("/dev/shm", "made")])
def test_what_a_test_would_leave_on_the_machine_is_not_there(run, place, said):
    planted = Path(place) / f"planted-{uuid.uuid4()}"
    _, lines = run(release=bad("stray", f"touch {planted} && echo made; exit 1"))
    assert lines[lines.index("--- what stray said (release)") + 1].endswith(said)
    assert not planted.exists()
