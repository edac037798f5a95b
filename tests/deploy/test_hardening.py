"""Each program has what deploy/hardening.cmake asks for; and what looks for it would miss it."""
import re
import subprocess

import pytest

from debian_package import ALL_PROGRAMS
from places import BUILD, PROGRAMS
from waiting import SECONDS

OWN_ROOMS = ("backup", "cgi", "platform", "services", "tools")
STATIC = "recording_backup.cgi"

# What the checks are tried on: an array on the stack, a call that may know its size, a frame of
# more than a page, and somebody else's function.
SAMPLE = r"""
#include <cstdio>
#include <cstring>
void copy(char* to, const char* from);
int own_function(const char* text) {
    char large[20000];
    copy(large, text);
    char all[100];
    std::strcpy(all, large);
    return std::printf("%s", all);
}
void copy(char* to, const char* from) { while ((*to++ = *from++) != 0) {} }
int main(int, char** words) { return own_function(words[0]); }
"""
FLAGS = ["-fPIE", "-fstack-protector-strong", "-fstack-clash-protection", "-fcf-protection",
         "-D_FORTIFY_SOURCE=3", "-Wl,-z,relro", "-Wl,-z,now"]
# What stands in place of each flag that is taken away, where the compiler would have it by itself.
INSTEAD = {"-fPIE": ["-fno-pie", "-no-pie"], "-Wl,-z,relro": ["-Wl,-z,norelro"],
           "-Wl,-z,now": ["-Wl,-z,lazy"], "-fcf-protection": ["-fcf-protection=none"]}


def said_by(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True,
                          timeout=SECONDS).stdout


def own_functions():
    """The names of the functions in our object files, and whether each is offered to others."""
    objects = [path for room in OWN_ROOMS for path in (BUILD / room).rglob("*.o")]
    listed = said_by("nm", "--defined-only", "--format=posix", *objects)
    return {name: kind == "T" for name, kind in re.findall(r"(?m)^(\S+) ([Tt]) ", listed)}


def code_of(program, names):
    """The instructions of each of these functions."""
    blocks = said_by("objdump", "-d", "--no-show-raw-insn", program).split("\n\n")
    headed = [(re.match(r"\n?[0-9a-f]+ <(.+)>:\n", block), block) for block in blocks]
    return {head[1]: block[head.end():] for head, block in headed if head and head[1] in names}


def missing_in_file(program):
    """What the loader is not asked for."""
    headers, dynamic = said_by("readelf", "-hlW", program), said_by("readelf", "-dW", program)
    return {name for name, found in {
        "position-independent": re.search(r"Type: +DYN ", headers),
        "relocations read-only": "GNU_RELRO" in headers,
        "bound at once": re.search(r"BIND_NOW|\bNOW\b", dynamic),
    }.items() if not found}


def missing_in_code(program, functions):
    """What the compiler has not put into functions of our own; libraries have their own flags.
    Functions that are called from nearby alone need no mark."""
    code = code_of(program, functions)
    assert code
    text = "".join(code.values())
    return {name for name, found in {
        "stack protector": "%fs:0x28" in text,
        "large frames probed": re.search(r"sub +\$0x1000,%rsp\n.*orq? +\$0x0,", text),
        "calls that know sizes": re.search(r"<__\w+_chk\b", text),
        "marked entries": all("endbr64" in block.split("\n", 1)[0] for name, block in code.items()
                              if functions[name]),
    }.items() if not found}


@pytest.mark.parametrize("program", ALL_PROGRAMS)
def test_a_program_lacks_nothing(program):
    path = PROGRAMS / program
    assert missing_in_file(path) | missing_in_code(path, own_functions()) == set()


def test_the_set_user_id_program_needs_nothing_to_be_loaded():
    assert "INTERP" not in said_by("readelf", "-lW", PROGRAMS / STATIC)


@pytest.mark.parametrize("program", [name for name in ALL_PROGRAMS if name != STATIC])
def test_debians_own_check_finds_nothing(program):
    """But for marked entries: Debian's C library has none, so no program is marked as a whole."""
    said_by("hardening-check", "--nocfprotection", PROGRAMS / program)


@pytest.mark.parametrize("linked", [[], ["-static-pie"]])
@pytest.mark.parametrize("absent, missed", [
    (None, set()),
    ("-fstack-protector-strong", {"stack protector"}),
    ("-fstack-clash-protection", {"large frames probed"}),
    ("-fcf-protection", {"marked entries"}),
    ("-D_FORTIFY_SOURCE=3", {"calls that know sizes"}),
    ("-Wl,-z,relro", {"relocations read-only"}),
    ("-Wl,-z,now", {"bound at once"}),
    ("-fPIE", {"position-independent"}),
])
def test_a_flag_that_is_taken_away_is_missed(tmp_path, linked, absent, missed):
    source, program = tmp_path / "sample.cpp", tmp_path / "sample"
    source.write_text(SAMPLE)
    flags = [flag for flag in FLAGS if flag != absent] + INSTEAD.get(absent, [])
    subprocess.run(["g++", "-O2", "-fno-inline", *linked, *flags, source, "-o", program],
                   check=True, timeout=SECONDS)
    functions = {"_Z12own_functionPKc": True, "_Z4copyPcPKc": True, "main": True}
    assert missing_in_file(program) | missing_in_code(program, functions) == missed
