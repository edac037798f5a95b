"""Each program has what deploy/hardening.cmake asks for; and what looks for it would miss it."""
import subprocess

import pytest

from debian_package import ALL_PROGRAMS
from hardening import (STATIC, check_by_debians_means, missing_in_code, missing_in_file,
                       needs_nothing_loaded, own_functions)
from places import PROGRAMS
from waiting import SECONDS

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
         "-D_FORTIFY_SOURCE=3", "-Wl,-z,relro", "-Wl,-z,now", "-Wl,-z,separate-code"]
# What stands in place of each flag that is taken away, where the compiler would have it by itself.
INSTEAD = {"-fPIE": ["-fno-pie", "-no-pie"], "-Wl,-z,relro": ["-Wl,-z,norelro"],
           "-Wl,-z,now": ["-Wl,-z,lazy"], "-Wl,-z,separate-code": ["-Wl,-z,noseparate-code"],
           "-fcf-protection": ["-fcf-protection=none"]}


@pytest.mark.parametrize("program", ALL_PROGRAMS)
def test_a_program_lacks_nothing(program):
    path = PROGRAMS / program
    assert missing_in_file(path) | missing_in_code(path, own_functions()) == set()


@pytest.mark.parametrize("program", STATIC)
def test_a_set_user_id_program_needs_nothing_to_be_loaded(program):
    assert needs_nothing_loaded(PROGRAMS / program)


@pytest.mark.parametrize("program", [name for name in ALL_PROGRAMS if name not in STATIC])
def test_debians_own_check_finds_nothing(program):
    check_by_debians_means(PROGRAMS / program)


@pytest.mark.parametrize("linked", [[], ["-static-pie"]])
@pytest.mark.parametrize("absent, missed", [
    (None, set()),
    ("-fstack-protector-strong", {"stack protector"}),
    ("-fstack-clash-protection", {"large frames probed"}),
    ("-fcf-protection", {"marked entries"}),
    ("-D_FORTIFY_SOURCE=3", {"calls that know sizes"}),
    ("-Wl,-z,relro", {"relocations read-only"}),
    ("-Wl,-z,now", {"bound at once"}),
    ("-Wl,-z,separate-code", {"constants that are no code"}),
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
