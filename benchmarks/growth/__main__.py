"""How what a recorder costs grows with tasks, years and cameras: slopes, by three sizes each."""
import argparse
import sys
from contextlib import closing

from benchmarks.growth import table
from benchmarks.growth.scenes import chosen

EXPLAINED = """
each: the slope, of least squares; fixed: what the line has where there is none. R2: 1 when all lies
on the line. bend: the last step's slope in that of the first, 1 on a straight line, 10 where ten
times as many cost a hundred times as much. Bytes and instructions are counted; ms, times and kB are
measured: a busy machine moves them."""


def measured(scene):
    """Who waits is told on standard error how far it is."""
    with closing(scene.measure(scene.sizes)) as values:
        for size in scene.sizes:
            print(f"{scene.name}: {size:,} ...", file=sys.stderr, flush=True)
            yield next(values)


def main():
    parser = argparse.ArgumentParser(prog="bench")
    parser.add_argument("--only", default="")
    try:
        scenes = chosen(parser.parse_args().only)
    except ValueError as error:
        sys.exit(f"bench: {error}")
    for scene in scenes:
        rows = table.rows(scene, list(measured(scene)))
        print("", table.head(scene), *rows, sep="\n", flush=True)
    print(EXPLAINED)


main()
