"""Each layout check must find a planted violation, and nothing in a tree that keeps the rules."""
import subprocess
from pathlib import Path

import pytest

import check_layout


def plant(root, path, text):
    file = root / path
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text)


@pytest.mark.parametrize("path, line", [
    ("cgi/routes.cpp", '#include "backup/task_list.h"'),
    ("cgi/routes.cpp", '#include "backup/task_record.h"'),
    ("cgi/routes.cpp", "#include <sqlite3.h>"),
    ("cgi/routes.cpp", "#  include <event2/http.h>"),
    ("cgi/routes.cpp", '#include "../services/csv.h"'),
    ("cgi/reply.h", '#include "backup/recording_backup_function.h"'),
    ("cgi/result_code.h", '#include "platform/nvrcfg.h"'),
    ("backup/task_list.cpp", '#include "cgi/routes.h"'),
    ("backup/task_list.cpp", '#include "platform/standalone/store/database.h"'),
    ("backup/task_list.cpp", '#include "services/http_service.h"'),
    ("backup/task_list.cpp", "#include <sqlite3.h>"),
    ("platform/nvrcfg.h", '#include "backup/task_record.h"'),
    ("platform/nvrcfg.h", "#include <json-c/json.h>"),
    ("platform/standalone/store.cpp", '#include "cgi/reply.h"'),
    ("platform/standalone/store.cpp", '#include "backup/operation.h"'),
    ("platform/standalone/store.cpp", '#include "services/http_service.h"'),
    ("services/event_log/main.cpp", '#include "cgi/result_code.h"'),
    ("services/event_log/main.cpp", '#include "backup/recording_backup_function.h"'),
    ("services/event_log/main.cpp", "#include <event2/http.h>"),
    ("services/event_log/main.cpp", '#include "services/backup_daemon/front/notice.h"'),
    ("services/http_service.cpp", '#include "services/event_log/csv.h"'),
    ("services/backup_daemon/when/a.cpp", '#include "services/backup_daemon/front/notice.h"'),
    ("services/backup_daemon/run/a.cpp", '#include "services/backup_daemon/when/schedule.h"'),
    ("services/backup_daemon/lane/a.cpp", '#include "services/backup_daemon/run/run_plan.h"'),
    ("services/backup_daemon/copy/a.cpp", '#include "services/backup_daemon/lane/packet.h"'),
    ("services/backup_daemon/copy/a.cpp", '#include "../lane/packet.h"'),
    ("services/backup_daemon/memory/a.cpp", '#include "services/backup_daemon/run/run_plan.h"'),
    ("services/backup_daemon/tell/a.cpp", '#include "services/backup_daemon/run/run_plan.h"'),
    ("services/backup_daemon/run/a.cpp", "#include <sqlite3.h>"),
    ("services/backup_daemon/lane/a.cpp", "#include <libsmbclient.h>"),
    ("tools/main.cpp", '#include "services/http_service.h"'),
    ("tools/main.cpp", "#include <curl/curl.h>"),
])
def test_an_include_against_the_arrows_is_found(tmp_path, path, line):
    plant(tmp_path, path, f"// A file.\n\n{line}\n")
    problems = list(check_layout.check_includes(tmp_path))
    assert len(problems) == 1
    assert problems[0].startswith(f"{path}:3: ")


def test_includes_along_the_arrows_are_accepted(tmp_path):
    plant(tmp_path, "cgi/main.cpp", '#include "backup/recording_backup_function.h"\n'
          '#include "cgi/reply.h"\n#include "platform/cgi_input.h"\n#include <json-c/json.h>\n')
    plant(tmp_path, "backup/task_list.cpp", '#include "task_lookup.h"\n#include "cgi/reply.h"\n')
    plant(tmp_path, "backup/task_lookup.h", "#include <sys/stat.h>\n#include <list>\n")
    plant(tmp_path, "platform/standalone/store.cpp",
          '#include "backup/task_record.h"\n#include <sqlite3.h>\n')
    plant(tmp_path, "services/event_log/main.cpp", '#include "services/http_service.h"\n')
    plant(tmp_path, "services/http_service.cpp", "#include <event2/http.h>\n")
    plant(tmp_path, "services/backup_daemon/when/run_queue.cpp",
          '#include "services/backup_daemon/run/backup_run.h"\n')
    plant(tmp_path, "services/backup_daemon/memory/store.cpp", "#include <sqlite3.h>\n")
    assert not list(check_layout.check_includes(tmp_path))


def plant_build(root):
    plant(root, "CMakeLists.txt", "add_subdirectory(tests)\n")
    plant(root, "tests/CMakeLists.txt", "add_subdirectory(unit)\n# add_subdirectory(forgotten)\n")
    plant(root, "tests/unit/CMakeLists.txt", "add_executable(t test_reply.cpp csv_test.cpp)\n"
          "add_sandboxed_pytest(x test_wire.py)\n# test_commented.cpp\n")


@pytest.mark.parametrize("name", ["test_reply.cpp", "csv_test.cpp", "test_wire.py"])
def test_a_test_that_the_build_names_is_accepted(tmp_path, name):
    plant_build(tmp_path)
    plant(tmp_path, f"tests/unit/{name}", "x")
    assert not list(check_layout.check_listed_tests(tmp_path))


@pytest.mark.parametrize("path", [
    "tests/unit/test_commented.cpp",
    "tests/unit/test_other.cpp",
    "tests/unit/other_test.cpp",
    "tests/unit/test_other.py",
    "tests/unit/other_test.py",
    "tests/unit/deeper/test_reply.cpp",
    "tests/forgotten/test_reply.cpp",
])
def test_a_test_outside_the_build_is_found(tmp_path, path):
    plant_build(tmp_path)
    plant(tmp_path, "tests/forgotten/CMakeLists.txt", "add_executable(t test_reply.cpp)\n")
    plant(tmp_path, path, "x")
    problems = list(check_layout.check_listed_tests(tmp_path))
    assert len(problems) == 1
    assert problems[0].startswith(f"{path}:1: ")


@pytest.mark.parametrize("path, text, place", [
    ("cgi/a.cpp", "#include <string>\n", "cgi/a.cpp:1:"),
    ("cgi/a.h", "", "cgi/a.h:1:"),
    ("platform/a.sql", "create table t(a);\n", "platform/a.sql:1:"),
    ("scripts/a", "#!/bin/bash\nset -e\n", "scripts/a:2:"),
    ("tests/a.py", "import os\n", "tests/a.py:1:"),
    ("cgi/a.cpp", "// Job.\n\n" + "x" * 101 + "\n", "cgi/a.cpp:3: 101 columns"),
])
def test_a_missing_first_comment_or_a_long_line_is_found(tmp_path, path, text, place):
    plant(tmp_path, path, text)
    problems = list(check_layout.check_text(tmp_path))
    assert len(problems) == 1
    assert problems[0].startswith(place)


def test_a_line_of_exactly_the_limit_is_accepted(tmp_path):
    plant(tmp_path, "cgi/a.cpp", "// Job.\n" + "x" * 100 + "\n")
    assert not list(check_layout.check_text(tmp_path))


def compile_program(folder, *options):
    program = folder / "program"
    subprocess.run(["cc", "-x", "c", *options, "-o", program, "-"], text=True, check=True,
                   input="int main(void){return 0;}")
    return program


def test_a_dynamically_linked_program_is_found(tmp_path):
    problems = list(check_layout.check_static(compile_program(tmp_path)))
    assert any("INTERP" in problem for problem in problems)
    assert any("NEEDED" in problem for problem in problems)


def test_a_statically_linked_program_is_accepted(tmp_path):
    assert not list(check_layout.check_static(compile_program(tmp_path, "-static")))


def test_the_command_prints_the_place_and_fails(tmp_path):
    plant(tmp_path, "cgi/a.cpp", "int x;\n")
    script = Path(check_layout.__file__)
    result = subprocess.run(["/usr/bin/python3", script, "text", tmp_path], text=True,
                            capture_output=True, check=False)
    assert result.returncode == 1
    assert result.stdout.startswith("cgi/a.cpp:1: ")
