"""Every guarantee on the daemon's page names tests that there are."""
import ast
import re
from pathlib import Path

import pytest

ROOT = Path(__file__).parents[2]
PAGE = "docs/backup-daemon.md"
TABLE = re.compile(r"<!-- guarantees -->\n(.*?)<!-- /guarantees -->", re.DOTALL)
TESTS = "tests/services/backup_daemon"
CASE = re.compile(r"\bTEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)")


def rows(page):
    """The cells of each guarantee; the head and the line below it are none."""
    found = TABLE.search(page)
    lines = found[1].splitlines()[2:] if found else []
    return [[cell.strip() for cell in line.strip("|").split(" | ")] for line in lines]


def names_in(path):
    """The names of the tests in a file, C++ ones as Suite.Name."""
    if path.suffix == ".py":
        return {node.name for node in ast.parse(path.read_text()).body
                if isinstance(node, ast.FunctionDef) and node.name.startswith("test_")}
    return {f"{suite}.{name}" for suite, name in CASE.findall(path.read_text())}


def problems_of(row, folder):
    """What is wrong with one guarantee."""
    if len(row) != 2 or not row[0].endswith("."):
        return [f"not a sentence and its tests: {row}"]
    named = re.findall(r"`([^`]+)`: `([^`]+)`", row[1])
    found = [f"{row[0]} has no test"] if not named else []
    for file, test in named:
        path = folder / file
        if not path.is_file():
            found.append(f"there is no {TESTS}/{file}")
        elif test not in names_in(path):
            found.append(f"{TESTS}/{file} has no {test}")
    return found


def problems(root):
    guarantees = rows((root / PAGE).read_text())
    if not guarantees:
        return [f"{PAGE} has no table of guarantees"]
    return [problem for row in guarantees for problem in problems_of(row, root / TESTS)]


# A tree with one test of each kind.
PYTHON = "`test_soak.py`: `test_much`"
CPP = "`copy/pace_test.cpp`: `Pace.IsKept`"



@pytest.fixture(name="tree")
def small_tree(tmp_path):
    folder = tmp_path / TESTS
    (folder / "copy").mkdir(parents=True)
    (folder / "test_soak.py").write_text("def test_much(): pass\ndef helper(): pass\n")
    (folder / "copy/pace_test.cpp").write_text("TEST_F(Pace, IsKept) {}\n")

    def plant(*lines):
        page = tmp_path / PAGE
        page.parent.mkdir(exist_ok=True)
        page.write_text("\n".join(["# Page", "<!-- guarantees -->", "| what | test |", "|---|---|",
                                   *lines, "<!-- /guarantees -->", ""]))
        return problems(tmp_path)

    return plant


def test_tests_that_there_are_are_right(tree):
    assert tree(f"| It works. | {PYTHON} |", f"| It is fast. | {CPP}, {PYTHON} |") == []


@pytest.mark.parametrize("line", [
    "| It works. | `test_soak.py`: `test_little` |", "| It works. | `test_soak.py`: `helper` |",
    "| It works. | `test_sock.py`: `test_much` |", "| It works. | `copy/pace_test.cpp`: `IsKept` |",
    "| It works. | test_soak.py |", "| It works. | |", f"| works | {PYTHON} |",
    f"| It works. | {PYTHON}, `copy/pace_test.cpp`: `Pace.IsLost` |"])
def test_a_row_without_its_test_is_wrong(tree, line):
    assert len(tree(f"| It is fast. | {CPP} |", line)) == 1


def test_a_page_without_the_table_is_wrong(tree):
    assert tree() == [f"{PAGE} has no table of guarantees"]


def test_the_page_is_right():
    assert problems(ROOT) == []
