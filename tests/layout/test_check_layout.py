"""Each layout check must find a planted violation, and nothing in a tree that keeps the rules."""
import subprocess
from pathlib import Path

import pytest

import check_layout


def plant(root, path, text):
    file = root / path
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text)


ROOT = Path(__file__).parents[2]
DAEMON = "services/backup_daemon"


@pytest.fixture
def tree(tmp_path):
    """A tree with nothing in it but the page that draws the rooms."""
    plant(tmp_path, check_layout.PAGE, (ROOT / check_layout.PAGE).read_text())
    return tmp_path


# By room, in the page's order: what must not be included there.
AGAINST_THE_ARROWS = [
    ("cgi/reply.h", '#include "backup/recording_backup_function.h"'),
    ("cgi/reply.h", "#include <json-c/json.h>"),
    ("cgi/result_code.h", '#include "platform/nvrcfg.h"'),
    ("cgi/routes.cpp", '#include "backup/task_list.h"'),
    ("cgi/routes.cpp", '#include "backup/task_record.h"'),
    ("cgi/routes.cpp", '#include "platform/standalone/run_program.h"'),
    ("cgi/routes.cpp", "#include <sqlite3.h>"),
    ("cgi/routes.cpp", "#  include <event2/http.h>"),
    ("cgi/routes.cpp", '#include "../services/csv.h"'),
    ("backup/task_list.cpp", '#include "cgi/routes.h"'),
    ("backup/task_list.cpp", '#include "platform/standalone/store/database.h"'),
    ("backup/task_list.cpp", '#include "services/http_service.h"'),
    ("backup/task_list.cpp", "#include <sodium.h>"),
    ("platform/nvrcfg.h", '#include "backup/task_record.h"'),
    ("platform/nvrcfg.h", '#include "platform/standalone/store/database.h"'),
    ("platform/nvrcfg.h", "#include <json-c/json.h>"),
    ("platform/standalone/store/database.cpp", '#include "platform/standalone/run_program.h"'),
    ("platform/standalone/store/database.cpp", '#include "services/clock.h"'),
    ("platform/standalone/store/database.cpp", "#include <event2/event.h>"),
    ("platform/standalone/nvrcfg.cpp", '#include "cgi/reply.h"'),
    ("platform/standalone/nvrcfg.cpp", '#include "backup/operation.h"'),
    ("platform/standalone/nvrcfg.cpp", '#include "services/http_service.h"'),
    ("platform/standalone/nvrcfg.cpp", "#include <sqlite3.h>"),
    (f"{DAEMON}/front/notice.cpp", f'#include "{DAEMON}/lane/worker.h"'),
    (f"{DAEMON}/front/notice.cpp", "#include <event2/http.h>"),
    (f"{DAEMON}/when/run_queue.cpp", f'#include "{DAEMON}/front/notice.h"'),
    (f"{DAEMON}/when/run_queue.cpp", f'#include "{DAEMON}/copy/share.h"'),
    (f"{DAEMON}/when/run_queue.cpp", "#include <json-c/json.h>"),
    (f"{DAEMON}/run/run_plan.cpp", f'#include "{DAEMON}/when/run_queue.h"'),
    (f"{DAEMON}/run/run_plan.cpp", "#include <event2/event.h>"),
    (f"{DAEMON}/lane/worker.cpp", f'#include "{DAEMON}/run/run_plan.h"'),
    (f"{DAEMON}/lane/worker.cpp", f'#include "{DAEMON}/memory/copy_store.h"'),
    (f"{DAEMON}/lane/worker.cpp", "#include <libsmbclient.h>"),
    (f"{DAEMON}/copy/resume.cpp", f'#include "{DAEMON}/lane/packet.h"'),
    (f"{DAEMON}/copy/resume.cpp", "#include <sodium.h>"),
    (f"{DAEMON}/copy/resume.cpp", "#include <seccomp.h>"),
    (f"{DAEMON}/memory/copy_store.cpp", f'#include "{DAEMON}/run/destination.h"'),
    (f"{DAEMON}/memory/copy_store.cpp", "#include <sqlite3.h>"),
    (f"{DAEMON}/tell/run_events.cpp", f'#include "{DAEMON}/run/run_tally.h"'),
    (f"{DAEMON}/tell/run_events.cpp", '#include "services/event_log/event_text.h"'),
    (f"{DAEMON}/tell/run_events.cpp", "#include <sqlite3.h>"),
    (f"{DAEMON}/tell/smtp.cpp", "#include <libsmbclient.h>"),
    (f"{DAEMON}/copy/resume.cpp", "#include <curl/curl.h>"),
    (f"{DAEMON}/main.cpp", "#include <curl/curl.h>"),
    ("tools/recorderctl/main.cpp", "#include <curl/curl.h>"),
    (f"{DAEMON}/tell/run_events.cpp", '#include "services/event_log/retention.h"'),
    (f"{DAEMON}/memory/copy_store.cpp", "#include <json-c/json.h>"),
    (f"{DAEMON}/main.cpp", f'#include "{DAEMON}/copy/share.h"'),
    (f"{DAEMON}/front/metrics_route.cpp", "#include <prometheus/registry.h>"),
    ("services/http_service.cpp", "#include <prometheus/exposer.h>"),
    (f"{DAEMON}/main.cpp", "#include <event2/event.h>"),
    ("services/event_log/main.cpp", '#include "cgi/result_code.h"'),
    ("services/event_log/main.cpp", '#include "backup/recording_backup_function.h"'),
    ("services/event_log/main.cpp", f'#include "{DAEMON}/run/run_settings.h"'),
    ("services/event_log/main.cpp", "#include <event2/http.h>"),
    ("services/http_service.cpp", '#include "services/event_log/retention.h"'),
    ("services/http_service.cpp", '#include "backup/task_record.h"'),
    ("services/http_service.cpp", "#include <openssl/evp.h>"),
    ("tools/main.cpp", '#include "services/http_service.h"'),
    ("tools/main.cpp", '#include "platform/standalone/run_program.h"'),
    ("tools/main.cpp", '#include "tests/support/whole_file.h"'),
    ("tools/main.cpp", "#include <sqlite3.h>"),
    ("tools/main.cpp", "#include <curl/curl.h>"),
    ("console/main.cpp", '#include "cgi/request.h"'),
    ("console/main.cpp", '#include "services/http_service.h"'),
    ("console/main.cpp", "#include <sqlite3.h>"),
    ("console/main.cpp", '#include "platform/standalone/debug_file.h"'),
]


@pytest.mark.parametrize("path, line", AGAINST_THE_ARROWS)
def test_an_include_against_the_arrows_is_found(tree, path, line):
    plant(tree, path, f"// A file.\n\n{line}\n")
    problems = list(check_layout.check_includes(tree))
    assert len(problems) == 1
    assert problems[0].startswith(f"{path}:3: ")


def test_every_room_has_a_planted_violation_of_its_arrows_and_of_its_libraries():
    rooms = check_layout.read_rooms(ROOT)
    planted = {(check_layout.room_of(path, rooms), "<" in line)
               for path, line in AGAINST_THE_ARROWS}
    assert not [(room.name, angled) for room in rooms for angled in (False, True)
                if (room, angled) not in planted]


def test_includes_along_the_arrows_are_accepted(tree):
    plant(tree, "cgi/main.cpp", '#include "backup/recording_backup_function.h"\n'
          '#include "cgi/reply.h"\n#include "platform/cgi_input.h"\n#include <json-c/json.h>\n')
    plant(tree, "backup/task_list.cpp", '#include "task_lookup.h"\n#include "cgi/reply.h"\n')
    plant(tree, "backup/task_lookup.h", "#include <sys/stat.h>\n#include <list>\n")
    plant(tree, "platform/standalone/nvrcfg.cpp",
          '#include "platform/standalone/store/database.h"\n#include <sodium.h>\n')
    plant(tree, "platform/standalone/store/database.cpp",
          '#include "backup/task_record.h"\n#include <sqlite3.h>\n')
    plant(tree, f"{DAEMON}/front/notice.cpp", f'#include "{DAEMON}/when/run_queue.h"\n'
          '#include "../run/run_settings.h"\n#include "services/http_service.h"\n')
    plant(tree, f"{DAEMON}/run/run_settings.h", "#include <string>\n")
    plant(tree, f"{DAEMON}/main.cpp", f'#include "{DAEMON}/when/run_queue.h"\n')
    plant(tree, "services/http_service.cpp",
          '#include "services/event_watch.h"\n#include <event2/http.h>\n')
    assert not list(check_layout.check_includes(tree))


@pytest.mark.parametrize("path", ["services/mail/main.cpp", "platform/other/nvrcfg.cpp",
                                  f"{DAEMON}/alarm/alarm.h"])
def test_a_file_outside_the_rooms_is_found(tree, path):
    plant(tree, path, "// A file.\n")
    assert [problem.split(": ")[0] for problem in check_layout.check_includes(tree)] == [
        f"{path}:1"]


DRAWN = """<!-- shorthands -->
| shorthand | stands for |
|---|---|
| ground | `a/*.h` |
<!-- /shorthands -->
<!-- rooms -->
| room | may include | libraries |
|---|---|---|
| `a/` | – | SQLite |
| `b/` | ground, `../c/` | json-c |
| `c/` | – | – |
<!-- /rooms -->
"""


@pytest.mark.parametrize("name", ["shorthands", "rooms"])
def test_a_page_without_its_tables_is_refused(tmp_path, name):
    plant(tmp_path, check_layout.PAGE, DRAWN.replace(f"<!-- {name} -->", ""))
    with pytest.raises(SystemExit, match=f"the table of {name}"):
        list(check_layout.check_includes(tmp_path))


def test_an_arrow_or_a_library_that_nothing_needs_is_found(tmp_path):
    plant(tmp_path, check_layout.PAGE, DRAWN)
    plant(tmp_path, "a/a.cpp", "#include <sqlite3.h>\n")
    plant(tmp_path, "b/b.cpp", '#include "b/b.h"\n')
    assert [problem.partition(": ")[2] for problem in check_layout.check_arrows(tmp_path)] == [
        "nothing in `b/` includes ground", "nothing in `b/` includes `../c/`",
        "nothing in `b/` includes json-c"]
    plant(tmp_path, "b/b.cpp", '#include "a/a.h"\n#include "c/c.h"\n#include <json-c/json.h>\n')
    assert not list(check_layout.check_arrows(tmp_path))


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
    "tests/unit/other_test.mjs",
    "tests/unit/deeper/test_reply.cpp",
    "tests/forgotten/test_reply.cpp",
    "tests/fuzz/notice.cpp",
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
    ("tests/a.mjs", "import \"fs\";\n", "tests/a.mjs:1:"),
    ("console/page/a.ts", "export {};\n", "console/page/a.ts:1:"),
    ("console/page/a.css", "p {}\n", "console/page/a.css:1:"),
    ("cgi/a.cpp", "// Job.\n\n" + "x" * 101 + "\n", "cgi/a.cpp:3: 101 columns"),
    ("docs/a.md", "# A\n\n" + "<" * 7 + " HEAD\n", "docs/a.md:3: left of a merge"),
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
