"""The header check must find a bad header in every room there is, and pass one that is good."""
import os
import subprocess
from pathlib import Path

import pytest

import check_headers
from places import SOURCE

COMPILER = ["c++", "-std=c++20", "-Wall", "-Werror"]
GOOD = "#pragma once\n#include <string>\nstruct Named {\n    std::string name;\n};\n"
NEEDS_MORE = GOOD.replace("#include <string>\n", "")
UNGUARDED = GOOD.replace("#pragma once\n", "")


def code():
    """Relative to the real tree; in the builds, other tests make and remove folders meanwhile."""
    for folder, folders, names in os.walk(SOURCE):
        folders[:] = set(folders) - check_headers.SKIPPED_FOLDERS
        for name in names:
            if name.endswith((".h", ".cpp")):
                yield (Path(folder) / name).relative_to(SOURCE)


def rooms():
    """The folders of the real tree with code in them or below them, the root among them."""
    return sorted({str(folder) for path in code() for folder in path.parents})


def plant(root, path, text):
    file = root / path
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text)


@pytest.mark.parametrize("room", rooms())
def test_a_bad_header_is_found_in_every_room(tmp_path, room):
    plant(tmp_path, "cgi/good.h", GOOD)
    plant(tmp_path, f"{room}/planted.h", NEEDS_MORE)
    bad = check_headers.check(tmp_path, COMPILER)
    assert list(bad) == [Path(room) / "planted.h"]
    assert "'string' in namespace 'std' does not name a type" in bad[Path(room) / "planted.h"]


def test_a_header_without_a_guard_is_found(tmp_path):
    plant(tmp_path, "cgi/unguarded.h", UNGUARDED)
    bad = check_headers.check(tmp_path, COMPILER)
    assert "redefinition of 'struct Named'" in bad[Path("cgi/unguarded.h")]


def test_a_header_that_breaks_a_rule_of_the_given_options_is_found(tmp_path):
    plant(tmp_path, "cgi/shadow.h",
          "#pragma once\ninline int f(int x) { { int x = 1; return x; } }\n")
    assert check_headers.check(tmp_path, COMPILER) == {}
    assert list(check_headers.check(tmp_path, [*COMPILER, "-Wshadow"])) == [Path("cgi/shadow.h")]


def run(root):
    return subprocess.run(["/usr/bin/python3", check_headers.__file__, root, *COMPILER],
                          text=True, check=False, capture_output=True)


def test_the_command_names_every_bad_header_and_fails(tmp_path):
    plant(tmp_path, "cgi/good.h", GOOD)
    plant(tmp_path, "cgi/a.h", NEEDS_MORE)
    plant(tmp_path, "backup/b.h", UNGUARDED)
    done = run(tmp_path)
    assert (done.returncode, done.stderr) == (1, "")
    assert [line for line in done.stdout.splitlines() if line.endswith("stand on its own")] == [
        "backup/b.h: does not stand on its own", "cgi/a.h: does not stand on its own"]


def test_the_command_passes_a_tree_of_good_headers_and_looks_at_no_build(tmp_path):
    plant(tmp_path, "cgi/good.h", GOOD)
    plant(tmp_path, "build/release/generated.h", NEEDS_MORE)
    done = run(tmp_path)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_a_compiler_that_fails_without_a_word_is_no_pass(tmp_path):
    plant(tmp_path, "cgi/good.h", GOOD)
    assert check_headers.check(tmp_path, ["false"]) == {Path("cgi/good.h"): "exit status 1\n"}
