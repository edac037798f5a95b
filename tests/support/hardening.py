"""Looks into programs for what deploy/hardening.cmake asks for."""
import re
import subprocess

from places import BUILD
from waiting import SECONDS

OWN_ROOMS = ("backup", "cgi", "console", "platform", "services", "tools")
STATIC = ("recording_backup.cgi", "console.cgi")
PAGE = 4096  # larger frames are made page by page, each of which is touched


def said_by(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          timeout=SECONDS).stdout


def own_functions():
    """The names of the functions in our object files, and whether each is offered to others."""
    objects = [path for room in OWN_ROOMS for path in (BUILD / room).rglob("*.o")]
    listed = said_by("nm", "--defined-only", "--format=posix", *objects)
    return {name: kind == "T" for name, kind in re.findall(r"(?m)^(\S+) ([Tt]) ", listed)}


def code_of(program, names):
    """The instructions of each of these functions. A program without names may have them in a file
    that it names, in .debug beside it."""
    blocks = said_by("objdump", "-d", "--no-show-raw-insn", "--process-links",
                     program).split("\n\n")
    headed = [(re.match(r"\n?[0-9a-f]+ <(.+)>:\n", block), block) for block in blocks]
    return {head[1]: block[head.end():] for head, block in headed if head and head[1] in names}


def constants_are_no_code(headers):
    """By readelf's list of segments, and then of the sections in each."""
    flags = re.findall(r"(?m)^  [A-Z_]+ +(?:0x\w+ +){5}([R ][W ][E ])", headers)
    sections = re.findall(r"(?m)^   \d\d +(.*)$", headers)
    assert len(flags) == len(sections) and any("E" in flag for flag in flags)
    return not any("E" in flag and ".rodata" in held for flag, held in zip(flags, sections))


def missing_in_file(program):
    """What the loader is not asked for."""
    headers, dynamic = said_by("readelf", "-hlW", program), said_by("readelf", "-dW", program)
    return {name for name, found in {
        "position-independent": re.search(r"Type: +DYN ", headers),
        "relocations read-only": "GNU_RELRO" in headers,
        "bound at once": re.search(r"BIND_NOW|\bNOW\b", dynamic),
        "constants that are no code": constants_are_no_code(headers),
    }.items() if not found}


def missing_in_code(program, functions):
    """What the compiler has not put into functions of our own; libraries have their own flags.
    Functions that are called from nearby alone need no mark. Longer numbers than those of
    frames are negative ones."""
    code = code_of(program, functions)
    assert code
    text = "".join(code.values())
    return {name for name, found in {
        "stack protector": "%fs:0x28" in text,
        "large frames probed": all(int(size, 16) <= PAGE for size in re.findall(
            r"\bsub +\$0x([0-9a-f]{1,8}),%rsp", text)),
        "calls that know sizes": re.search(r"<__\w+_chk\b", text),
        "marked entries": all("endbr64" in block.split("\n", 1)[0] for name, block in code.items()
                              if functions[name]),
    }.items() if not found}


def needs_nothing_loaded(program):
    return "INTERP" not in said_by("readelf", "-lW", program)


def check_by_debians_means(program):
    """But for marked entries: Debian's C library has none, so no program is marked as a whole."""
    said_by("hardening-check", "--nocfprotection", program)
