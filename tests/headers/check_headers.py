#!/usr/bin/python3
"""Compiles each header of the tree alone, twice in a row: whoever includes it needs nothing else.

usage: check_headers.py ROOT COMPILER [OPTION...]
"""
import os
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

SKIPPED_FOLDERS = {".git", "build"}


def headers(root):
    """Every header in every folder, so that no room can be forgotten; relative to the root."""
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(set(folders) - SKIPPED_FOLDERS)
        for name in sorted(names):
            if name.endswith(".h"):
                yield (Path(folder) / name).relative_to(root)


def complaint(root, compiler, header):
    """What the compiler says against the header; empty when it stands on its own."""
    done = subprocess.run([*compiler, "-fsyntax-only", "-x", "c++", "-include", header,
                           "-include", header, "/dev/null"], cwd=root, text=True, check=False,
                          capture_output=True, env={**os.environ, "LC_ALL": "C"})
    return done.stderr or (f"exit status {done.returncode}\n" if done.returncode else "")


def check(root, compiler):
    """The headers that do not stand on their own, with what the compiler says."""
    found = list(headers(root))
    with ThreadPoolExecutor(os.cpu_count()) as at_once:
        said = at_once.map(lambda header: complaint(root, compiler, header), found)
        return {header: words for header, words in zip(found, said) if words}


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    bad = check(Path(sys.argv[1]).resolve(), sys.argv[2:])
    for header, words in bad.items():
        print(f"{header}: does not stand on its own\n{words}")
    sys.exit(1 if bad else 0)


if __name__ == "__main__":
    main()
