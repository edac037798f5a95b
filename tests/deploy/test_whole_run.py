"""What ./test says at its end, with real runs of ctest on tests that have been built already."""
import os
import shutil
import subprocess

import pytest

from places import SOURCE
from waiting import SECONDS

GOOD = 'add_test(good "true")\n'
SKIPPED = ('add_test(passed_over "echo" "SKIPPED here")\n'
           'set_tests_properties(passed_over PROPERTIES SKIP_REGULAR_EXPRESSION "SKIPPED")\n')
LONG = 'add_test(hours "true")\nset_tests_properties(hours PROPERTIES LABELS "end_to_end;long")\n'
LATE = 'add_test(late "sleep" "1000")\nset_tests_properties(late PROPERTIES TIMEOUT 1)\n'
MISSING = 'add_test(missing "/nowhere/program")\n'


def bad(name, script="echo said by $0; exit 3"):
    return f'add_test({name} "bash" "-c" "{script}" "{name}")\n'


def stand_in(path):
    """A program that does nothing, successfully."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("#!/bin/sh\n")
    path.chmod(0o755)


@pytest.fixture(name="run")
def tree(tmp_path):
    """Runs ./test in a tree where nothing is to be installed, prepared or built; gives its exit
    status and lines. Tests are the contents of a build folder's list of tests."""
    shutil.copy(SOURCE / "test", tmp_path)
    (tmp_path / "scripts").mkdir()
    for name in ("common.sh", "failed_tests", "untouched"):
        shutil.copy(SOURCE / "scripts" / name, tmp_path / "scripts")
    for name in ("scripts/install_dependencies", "scripts/sandbox", "tests/kernel_mount/prepare",
                 "tools/cmake"):
        stand_in(tmp_path / name)

    def run(release, asan=GOOD, arguments=()):
        for preset, tests in (("release", release), ("asan", asan)):
            folder = tmp_path / "build" / preset
            folder.mkdir(parents=True, exist_ok=True)
            (folder / "CTestTestfile.cmake").write_text(tests)
        done = subprocess.run(
            [tmp_path / "test", *arguments], text=True, errors="replace",
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            timeout=SECONDS, env={**os.environ, "PATH": f"{tmp_path}/tools:{os.environ['PATH']}"},
            check=False)
        return done.returncode, done.stdout.splitlines()

    return run


def test_without_a_failure_the_counts_are_all(run):
    status, lines = run(release=GOOD + SKIPPED)
    assert status == 0
    assert lines[-2:] == ["1 skipped", "2 passed, 0 failed"]
    assert not [line for line in lines if line.startswith("failed in")]


def test_names_of_what_failed_come_right_before_the_counts(run):
    status, lines = run(release=GOOD + SKIPPED + bad("first"), asan=bad("second") + GOOD)
    assert status == 1
    assert [line.partition(",")[0] for line in lines[-4:-2]] == [
        "failed in release: first", "failed in asan: second"]
    assert lines[-2:] == ["1 skipped", "2 passed, 2 failed"]


def test_the_end_of_what_a_failed_test_said_comes_before(run):
    _, lines = run(release=bad("talker", "seq 1000; exit 1"))
    assert lines[-43:-2] == ["--- the end of what talker said (release)",
                             *(str(number) for number in range(961, 1001))]


def test_what_took_too_long_and_what_is_not_there_is_named(run):
    status, lines = run(release=GOOD + LATE, asan=MISSING)
    assert status == 1
    assert [line.partition(",")[0] for line in lines if line.startswith("failed in")] == [
        "failed in release: late", "failed in asan: missing"]


def test_bytes_that_no_terminal_shows_are_shown_as_numbers(run):
    _, lines = run(release=bad("rude", r"printf 'a\\033b\\377c\\n'; exit 1"))
    assert "a[NON-XML-CHAR-0x1B]b[NON-UTF-8-BYTE-0xFF]c" in lines[lines.index(
        "--- the end of what rude said (release)"):]


def test_many_failures_are_named_up_to_a_bound(run):
    _, lines = run(release="".join(bad(f"bad_{number}") for number in range(60)))
    end = lines[lines.index("--- the end of what bad_0 said (release)"):]
    assert len([line for line in end if line.startswith("said by")]) == 10
    assert len([line for line in end if line.startswith("failed in release: bad_")]) == 50
    assert end[-2:] == ["and 10 more", "1 passed, 60 failed"]


@pytest.mark.parametrize("arguments, passed", [
    ((), 2), (("-LE", "unheard of"), 2), (("-L", "long"), 1), (("-L", "end_to_end"), 0),
    (("-L", "long", "-LE", "end_to_end"), 0), (("-LE", "unheard of", "-L", "long"), 1)])
def test_the_long_run_is_left_out_unless_it_is_asked_for(run, arguments, passed):
    _, lines = run(release=GOOD + LONG, arguments=arguments)
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
