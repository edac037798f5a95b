#!/usr/bin/python3
"""Checks the source tree's own rules; prints file:line for each violation, exits 1 if there is any.

usage: check_layout.py includes|arrows|listed_tests|text|tree [ROOT]   (tree: all four)
       check_layout.py static PROGRAM
"""
import os
import re
import subprocess
import sys
from pathlib import Path

# The rooms and what they may include are drawn here, once.
PAGE = "docs/ARCHITECTURE.md"
# Which library a header belongs to, by the name that the page gives it.
LIBRARIES = [
    (r"json-c/.*|json\.h", "json-c"),
    (r"sqlite3\.h", "SQLite"),
    (r"event2/.*|event\.h|evhttp\.h", "libevent"),
    (r"sodium\.h|sodium/.*", "libsodium"),
    (r"libsmbclient\.h|samba-4\.0/.*", "libsmbclient"),
    (r"openssl/.*", "libcrypto"),
    (r"curl/.*", "libcurl"),
    (r"seccomp\.h", "libseccomp"),
    (r"CLI/.*", "CLI11"),
    (r"prometheus/.*", "prometheus-cpp"),
]
# C++'s own headers have no dot; these are C's and the system's.
SYSTEM = (r"[a-z0-9_]+|(sys|arpa|net|netinet|linux)/[a-z0-9_]+\.h|"
          r"(dirent|errno|fcntl|grp|ifaddrs|libgen|limits|netdb|poll|pthread|pwd|sched|signal|"
          r"spawn|stdarg|stdint|stdio|stdlib|string|strings|syslog|termios|time|unistd)\.h")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')

SKIPPED_FOLDERS = {".git", "build", "__pycache__", ".pytest_cache", "state"}
COMMENT_STARTS = {".cpp": "//", ".h": "//", ".in": "//", ".sql": "--", ".py": ('"""', "#"),
                  ".cmake": "#", ".sh": "#", ".conf": "#", ".service": "#", "": "#",
                  ".ts": "//", ".mjs": "//", ".css": "/*"}
LONGEST_LINE = 100


def tree_files(root):
    """Every file of the source tree, as paths relative to root, sorted."""
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(set(folders) - SKIPPED_FOLDERS)
        for name in sorted(names):
            yield (Path(folder) / name).relative_to(root)


def table(page, name):
    """The rows of a marked table of the page, as lists of cells; header and rule left out."""
    marked = re.search(rf"<!-- {name} -->\n(.*?)<!-- /{name} -->", page, re.DOTALL)
    if marked is None:
        sys.exit(f"{PAGE}: the table of {name} is not marked")
    rows = marked.group(1).splitlines()[2:]
    return [[cell.strip() for cell in row.strip("|").split("|")] for row in rows]


def items(cell):
    return [] if cell == "–" else [item.strip() for item in cell.split(",")]


def pattern(item, folder=""):
    """`dir/` is everything below, * anything but a slash; ./ and ../ start from `folder`."""
    path = item.strip("`")
    if path.startswith("."):
        path = os.path.normpath(f"{folder}/{path}") + ("/" if path.endswith("/") else "")
    regex = re.escape(path).replace(r"\*", "[^/]*")
    return re.compile(regex + (".*" if path.endswith("/") else ""))


class Room:
    """One row: which files it has, which others and which libraries they may include."""

    def __init__(self, row, shorthands):
        names, allowed, libraries = row
        self.name = names
        self.files = [pattern(item) for item in items(names)]
        folder = os.path.dirname(items(names)[0].strip("`"))
        self.allowed = {item: [pattern(part, folder) for part in expand(item, shorthands)]
                        for item in items(allowed)}
        self.libraries = items(libraries)

    def has(self, path):
        return any(regex.fullmatch(path) for regex in self.files)

    def arrow_to(self, path):
        """What in the row allows the include, or None."""
        return next((item for item, parts in self.allowed.items()
                     if any(part.fullmatch(path) for part in parts)), None)


def expand(item, shorthands):
    if item.startswith("`"):
        return [item]
    return [part for inner in shorthands[item] for part in expand(inner, shorthands)]


def read_rooms(root):
    page = (root / PAGE).read_text()
    shorthands = {name: items(cell) for name, cell in table(page, "shorthands")}
    return [Room(row, shorthands) for row in table(page, "rooms")]


def room_of(path, rooms):
    return next((room for room in rooms if room.has(path)), None)


def library_of(header):
    return next((name for regex, name in LIBRARIES if re.fullmatch(regex, header)), None)


def includes(root):
    """Every include as (file, line number, whether in angle brackets, header from the root)."""
    for path in tree_files(root):
        if path.suffix not in {".h", ".cpp", ".in"}:
            continue
        for number, line in enumerate((root / path).read_text().splitlines(), 1):
            found = INCLUDE.match(line)
            if not found:
                continue
            quote, header = found.groups()
            sibling = path.parent / header
            ours = quote == '"' and (root / sibling).is_file()
            yield path, number, quote == "<", os.path.normpath(sibling) if ours else header


def include_problem(room, rooms, angled, header):
    """Why a file of the room may not include this, or None."""
    if not angled:
        target = os.path.normpath(header)
        known = room_of(target, rooms) is room or room.arrow_to(target)
        return None if known else f'"{target}" is not for this room'
    library = library_of(header)
    if library is None:
        known = re.fullmatch(SYSTEM, header)
        return None if known else f"<{header}> is of no known library"
    return None if library in room.libraries else f"<{header}> ({library}) is not for this room"


def check_includes(root):
    """No include but along the drawn arrows, and no file of a drawn folder outside its rooms."""
    rooms = read_rooms(root)
    folders = {item.strip("`").split("/")[0] for room in rooms for item in items(room.name)}
    for path in tree_files(root):
        homeless = path.parts[0] in folders and path.suffix in {".h", ".cpp"}
        if homeless and room_of(path.as_posix(), rooms) is None:
            yield f"{path}:1: stands in no room of {PAGE}"
    for path, number, angled, header in includes(root):
        room = room_of(path.as_posix(), rooms)
        problem = room and include_problem(room, rooms, angled, header)
        if problem:
            yield f"{path}:{number}: {problem}"


def check_arrows(root):
    """No arrow and no library is drawn that no include needs."""
    rooms = read_rooms(root)
    used = set()
    for path, _, angled, header in includes(root):
        if room := room_of(path.as_posix(), rooms):
            used.add((room, library_of(header) if angled else room.arrow_to(header)))
    for room in rooms:
        for item in (*room.allowed, *room.libraries):
            if (room, item) not in used:
                yield f"{PAGE}: nothing in {room.name} includes {item}"


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


def is_test(path):
    if path.parent.as_posix() == "tests/fuzz":
        return path.suffix == ".cpp"
    return path.parts[0] == "tests" and re.fullmatch(r"(test_.*|.*_test)\.(cpp|py|mjs)", path.name)


def check_listed_tests(root):
    lists = list(build_lists(root))
    for path in tree_files(root):
        if is_test(path) and not is_listed(path, lists):
            yield f"{path}:1: named in no CMakeLists.txt of the build, so this test never runs"


def is_our_text(root, path):
    if path.suffix == "":
        with open(root / path, "rb") as file:
            return file.read(2) == b"#!"
    return path.suffix in COMMENT_STARTS


def merge_marks(root, path):
    for number, line in enumerate((root / path).read_bytes().splitlines(), 1):
        if line.startswith((b"<<<<<<" + b"< ", b">>>>>>" + b"> ")):
            yield f"{path}:{number}: left of a merge"


def check_text(root):
    """The first line, or the one behind #!, says the file's job; no line is over the limit."""
    for path in tree_files(root):
        yield from merge_marks(root, path)
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


TREE_CHECKS = {"includes": check_includes, "arrows": check_arrows,
               "listed_tests": check_listed_tests, "text": check_text}


def check_tree(root):
    for check in TREE_CHECKS.values():
        yield from check(root)


CHECKS = {**TREE_CHECKS, "tree": check_tree, "static": check_static}


def main():
    if len(sys.argv) not in (2, 3) or sys.argv[1] not in CHECKS:
        sys.exit(__doc__)
    root = Path(sys.argv[2] if len(sys.argv) == 3 else Path(__file__).parents[2]).resolve()
    problems = list(CHECKS[sys.argv[1]](root))
    print("\n".join(problems), end="\n" if problems else "")
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
