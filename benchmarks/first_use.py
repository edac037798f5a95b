"""Prints deploy/first_use.ld: the object files whose functions requests run, in the order of use.

usage: first_use.py MAP PROGRAM COUNTED...

MAP       what the linker says of PROGRAM when it is linked with -Wl,-Map=MAP
COUNTED   what `valgrind --tool=callgrind --demangle=no --callgrind-out-file=COUNTED PROGRAM` has
          written for requests, the most frequent one first
"""
import bisect
import re
import subprocess
import sys
from pathlib import Path

HEAD = """\
/* The object files whose functions requests run, in the order of use: one after the other, so that
   few pages of the program are read and mapped. Those that are not there are not missed.
   benchmarks/first_use.py has printed this. */
SECTIONS
{
  .text.first :
  {
"""
TAIL = """\
  }
}
INSERT BEFORE .text;
"""


def placed(link_map):
    """The code of each object file of an archive: where it begins and ends, and its name."""
    said = Path(link_map).read_text()
    found = re.findall(r"^ \.text\S*\s+0x(\w+)\s+0x(\w+)\s+\S*?([^/\s]+\.a)\((.+)\)$",
                       said[said.index("Linker script and memory map"):], re.M)
    return sorted((int(begin, 16), int(begin, 16) + int(size, 16), f"{archive}:{member}")
                  for begin, size, archive, member in found)


def addresses(program):
    listed = subprocess.run(["nm", program], check=True, capture_output=True, text=True).stdout
    return {name: int(address, 16)
            for address, name in re.findall(r"(?m)^(\w+) [tTwWiI] (\S+)$", listed)}


def functions(counted):
    """Those that were run, by their first call; the variants for other processors, too."""
    said = "\n".join(Path(name).read_text(errors="replace") for name in counted)
    for name in dict.fromkeys(re.findall(r"(?m)^c?fn=\(\d+\) ([^'\n]+)", said)):
        yield from (name, name.replace("_avx2", "_evex"), name.replace("_avx_", "_avx512_"))


def main(link_map, program, *counted):
    pieces, known = placed(link_map), addresses(program)
    used = {}
    for name in functions(counted):
        at = bisect.bisect(pieces, (known.get(name, -1), sys.maxsize)) - 1
        if at >= 0 and known[name] < pieces[at][1]:
            used[pieces[at][2]] = None
    print(HEAD + "".join(f"    *{name}(.text .text.*)\n" for name in used) + TAIL, end="")


main(*sys.argv[1:])
