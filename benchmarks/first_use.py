"""Makes deploy/first_use.ld: the object files whose functions requests run, in the order of use.

tests/cgi_binary/test_cost.py runs the requests, and leaves what the file should say in the build
folder when an object file of ours is missing from it.
"""
import bisect
import re
import subprocess
import sys
from collections import Counter
from pathlib import Path

HEAD = """\
/* The object files whose functions requests run, in the order of use: their functions, constants
   and variables one after the other, so that few pages of the program are read and mapped. Those
   that are not there are not missed. benchmarks/first_use.py has made this. */
"""
SECTION = """\
SECTIONS
{{
  {0}.first :{2}
  {{
{1}  }}
}}
INSERT BEFORE {0};
"""
LINE = "    *{0}({1} {1}.*)\n"

# What valgrind has another name for; how a program finds the kernel's clock, which valgrind keeps
# from it; and what setting the zone takes, which is set already where requests are counted.
UNSEEN = ("_start", "_dl_new_object", "_dl_setup_hash", "_dl_lookup_symbol_x",
          "__libc_alloca_cutoff", "__tsearch")


def placed(link_map):
    """The code of each object file: where it begins and ends, its name, and whether it is ours."""
    said = Path(link_map).read_text()
    found = re.findall(r"^ \.text\S*\s+0x(\w+)\s+0x(\w+)\s+(\S*?)([^/\s()]+)(?:\((.+)\))?$",
                       said[said.index("Linker script and memory map"):], re.M)
    return sorted((int(begin, 16), int(begin, 16) + int(size, 16),
                   f"{file}:{member}" if member else file, not folder.startswith("/"))
                  for begin, size, folder, file, member in found)


def addresses(program):
    """Of the functions whose names no other one has: two files may each have one to themselves."""
    listed = subprocess.run(["nm", program], check=True, capture_output=True, text=True).stdout
    found = re.findall(r"(?m)^(\w+) [tTwWiI] (\S+)$", listed)
    often = Counter(name for _, name in found)
    return {name: int(address, 16) for address, name in found if often[name] == 1}


def functions(counted):
    """Those that were run, by their first call; the variants for other processors, too."""
    said = "\n".join(Path(name).read_text(errors="replace") for name in counted)
    yield from UNSEEN
    for name in dict.fromkeys(re.findall(r"(?m)^c?fn=\(\d+\) ([^'\n]+)", said)):
        yield from (name, name.replace("_avx_", "_avx512_"))
        yield from (name.replace("_avx2", other) for other in ("_evex", "_evex_rtm", "_avx512"))


def used(program, counted):
    """The object files that were run, by first use, and whether each is ours.

    :param program: has been linked with -Wl,-Map=<program's name>.map, in the folder above
    :param counted: what `valgrind --tool=callgrind --demangle=no --callgrind-out-file=FILE` has
        written for requests, the most frequent one first
    """
    pieces = placed(program.parents[1] / f"{program.name}.map")
    known, files = addresses(program), {}
    for name in functions(counted):
        at = bisect.bisect(pieces, (known.get(name, -1), sys.maxsize)) - 1
        if at >= 0 and known[name] < pieces[at][1]:
            files[pieces[at][2]] = pieces[at][3]
    return files


# The linker's own script begins a page, which is not to be run, with .rodata: so does what stands
# before that.
KINDS = {".text": "", ".rodata": " ALIGN(CONSTANT(MAXPAGESIZE))", ".bss": ""}


def script(names):
    """What the linker is told."""
    return HEAD + "".join(
        SECTION.format(kind, "".join(LINE.format(name, kind) for name in names), place)
        for kind, place in KINDS.items())
