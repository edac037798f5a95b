#!/usr/bin/python3
"""Checks the source tree's own rules; prints file:line for each violation, exits 1 if there is any.

usage: check_layout.py includes|listed_tests|text [ROOT]
       check_layout.py static PROGRAM
"""
import os
import re
import subprocess
import sys
from pathlib import Path

# First match wins: these files may include these headers of ours and these libraries.
JSON = {"json-c"}
CONTRACTS = r"platform/[^/]+\.h"
STORES = r"platform/standalone/store/[^/]+\.h"
RECORD = r"backup/task_record\.h"
DAEMON = "services/backup_daemon"
SHARED = rf"services/[^/]+\.h|{CONTRACTS}|{STORES}|{RECORD}"


def daemon_room(name, *known, libraries=frozenset()):
    """A row for a room of the backup daemon, which may include itself and the rooms it knows."""
    rooms = "|".join((name, *known))
    return (rf"{DAEMON}/{name}/.*", rf"{DAEMON}/({rooms})/.*|{SHARED}", JSON | set(libraries))


ROOMS = [
    (r"cgi/(result_code|reply)\.h", r"cgi/(result_code|reply)\.h", JSON),
    (r"cgi/.*", rf"cgi/.*|backup/recording_backup_function\.h|{CONTRACTS}", JSON),
    (r"backup/.*", rf"backup/.*|cgi/(result_code|reply)\.h|{CONTRACTS}", JSON),
    (r"platform/standalone/store/.*", rf"{STORES}|{CONTRACTS}|{RECORD}",
     JSON | {"sqlite", "passwords"}),
    (r"platform/standalone/.*", rf"platform/standalone/.*|{CONTRACTS}|{RECORD}",
     JSON | {"libevent", "sqlite", "passwords"}),
    (r"platform/.*", r"(?!)", set()),
    daemon_room("front", "when", "run"),
    daemon_room("when", "run", "memory", "tell"),
    daemon_room("run", "lane", "copy", "memory", "tell"),
    daemon_room("lane", "copy"),
    daemon_room("copy", libraries={"smb", "hashing"}),
    daemon_room("memory", libraries={"sqlite"}),
    daemon_room("tell"),
    (rf"{DAEMON}/[^/]+", rf"{DAEMON}/.*|{SHARED}", set()),
    (r"services/event_log/.*", rf"services/event_log/.*|{SHARED}", JSON),
    (r"services/[^/]+", SHARED, JSON | {"libevent", "command line"}),
    (r"tools/.*", rf"tools/.*|{CONTRACTS}|{STORES}|{RECORD}",
     JSON | {"passwords", "command line"}),
]
LIBRARIES = [
    (r"json-c/.*|json\.h", "json-c"),
    (r"sqlite3\.h", "sqlite"),
    (r"event2/.*|event\.h|evhttp\.h", "libevent"),
    (r"b64/.*", "base64"),
    (r"sodium\.h|sodium/.*|crypt\.h", "passwords"),
    (r"libsmbclient\.h|samba-4\.0/.*", "smb"),
    (r"openssl/.*", "hashing"),
    (r"CLI/.*", "command line"),
]
# C++'s own headers have no dot; these are C's and the system's.
SYSTEM = (r"[a-z0-9_]+|(sys|arpa|net|netinet|linux)/[a-z0-9_]+\.h|"
          r"(dirent|errno|fcntl|grp|libgen|limits|netdb|poll|pthread|pwd|sched|signal|spawn|stdarg|"
          r"stdint|stdio|stdlib|string|strings|syslog|termios|time|unistd)\.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

SKIPPED_FOLDERS = {".git", "build", "__pycache__", ".pytest_cache", "state"}
COMMENT_STARTS = {".cpp": "//", ".h": "//", ".in": "//", ".sql": "--", ".py": ('"""', "#"),
                  ".cmake": "#", ".sh": "#", ".conf": "#", ".service": "#", "": "#"}
LONGEST_LINE = 100


def tree_files(root):
    """Every file of the source tree, as paths relative to root, sorted."""
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(set(folders) - SKIPPED_FOLDERS)
        for name in sorted(names):
            yield (Path(folder) / name).relative_to(root)


def library_of(header):
    return next((name for pattern, name in LIBRARIES if re.fullmatch(pattern, header)), None)


def include_problem(root, path, quote, header, ours, libraries):
    """Why this include is not allowed, or None."""
    if quote == "<":
        library = library_of(header)
        if library is None:
            known = re.fullmatch(SYSTEM, header)
            return None if known else f"<{header}> is of no known library"
        return None if library in libraries else f"<{header}> ({library}) is not for this room"
    sibling = path.parent / header
    target = sibling.as_posix() if (root / sibling).is_file() else header
    allowed = re.fullmatch(ours, os.path.normpath(target))
    return None if allowed else f'"{target}" is not for this room'


def check_includes(root):
    for path in tree_files(root):
        if path.suffix not in {".h", ".cpp", ".in"}:
            continue
        room = next((r for r in ROOMS if re.fullmatch(r[0], path.as_posix())), None)
        if room is None:
            continue
        for number, line in enumerate((root / path).read_text().splitlines(), 1):
            found = INCLUDE.match(line)
            problem = found and include_problem(root, path, *found.groups(), *room[1:])
            if problem:
                yield f"{path}:{number}: {problem}"


def build_lists(root, folder=Path(".")):
    """The CMakeLists.txt files that the build really reads, as (folder, text without comments)."""
    listing = root / folder / "CMakeLists.txt"
    if not listing.is_file():
        return
    text = re.sub(r"#.*", "", listing.read_text()).replace("${CMAKE_CURRENT_SOURCE_DIR}/", "")
    yield folder, text
    for name in re.findall(r"add_subdirectory\(\s*([^\s)]+)", text):
        yield from build_lists(root, folder / name)


def is_listed(path, lists):
    """Named with its extension, relative to its own folder's CMakeLists.txt or a parent's."""
    for folder, text in lists:
        if folder in path.parents:
            name = re.escape(path.relative_to(folder).as_posix())
            if re.search(rf"(?<![\w./-]){name}(?![\w.-])", text):
                return True
    return False


def check_listed_tests(root):
    lists = list(build_lists(root))
    for path in tree_files(root):
        is_test = re.fullmatch(r"(test_.*|.*_test)\.(cpp|py)", path.name)
        if path.parts[0] == "tests" and is_test and not is_listed(path, lists):
            yield f"{path}:1: named in no CMakeLists.txt of the build, so this test never runs"


def is_our_text(root, path):
    if path.suffix == "":
        with open(root / path, "rb") as file:
            return file.read(2) == b"#!"
    return path.suffix in COMMENT_STARTS


def check_text(root):
    """The first line, or the one behind #!, says the file's job; no line is over the limit."""
    for path in tree_files(root):
        if not is_our_text(root, path):
            continue
        lines = (root / path).read_text().splitlines()
        first = 1 if lines and lines[0].startswith("#!") else 0
        if len(lines) <= first or not lines[first].startswith(COMMENT_STARTS[path.suffix]):
            yield f"{path}:{first + 1}: the first line must be a comment: the file's job"
        for number, line in enumerate(lines, 1):
            if len(line) > LONGEST_LINE:
                yield f"{path}:{number}: {len(line)} columns, more than {LONGEST_LINE}"


def check_static(program):
    """A statically linked program asks for no interpreter and no shared library."""
    for option, forbidden in (("-lW", "INTERP"), ("-dW", "(NEEDED)")):
        output = subprocess.run(["readelf", option, program], check=True, text=True,
                                capture_output=True, env={**os.environ, "LC_ALL": "C"}).stdout
        for line in output.splitlines():
            if forbidden in line:
                yield f"{program}: not linked statically: {line.strip()}"


CHECKS = {"includes": check_includes, "listed_tests": check_listed_tests, "text": check_text,
          "static": check_static}


def main():
    if len(sys.argv) not in (2, 3) or sys.argv[1] not in CHECKS:
        sys.exit(__doc__)
    root = Path(sys.argv[2] if len(sys.argv) == 3 else Path(__file__).parents[2]).resolve()
    problems = list(CHECKS[sys.argv[1]](root))
    print("\n".join(problems), end="\n" if problems else "")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
