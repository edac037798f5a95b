"""Takes the measurements that ./bench names, and writes the figures of all to one file."""
import argparse
import json
import os
import platform
import subprocess
import sys
from pathlib import Path

from benchmarks import compare, copy, log_query, look, requests
from benchmarks.report import Report
from places import PROGRAMS, STATE

MEASUREMENTS = {"requests": requests, "log_query": log_query, "copy": copy, "look": look,
                "compare": compare}


def said_by(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout.strip()


def processor():
    lines = Path("/proc/cpuinfo").read_text().splitlines()
    names = [line.partition(":")[2].strip() for line in lines if line.startswith("model name")]
    return names[0] if names else platform.machine()


def file_system(folder):
    """Of the uppermost, where one is mounted over another."""
    return said_by("findmnt", "-no", "FSTYPE", "-T", folder).splitlines()[-1]


def machine():
    """What figures depend on, and how busy it was before."""
    return {"processors": os.cpu_count(), "processor": processor(), "kernel": platform.release(),
            "memory_mib": os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE") // 2**20,
            "state_file_system": file_system(STATE),
            "load_before": os.getloadavg()[0]}


def take(name, asked):
    """The rows of one measurement. Whoever asks for all of it gets each aim judged."""
    report = Report(name, asked.only)
    MEASUREMENTS[name].main(report, asked)
    missed = report.aims_without_figures()
    if missed and not (asked.quick or asked.only):
        sys.exit(f"bench: these aims have no figures: {', '.join(missed)}")
    return report.rows


def parse():
    parser = argparse.ArgumentParser(prog="bench")
    parser.add_argument("measurements", nargs="+", choices=MEASUREMENTS)
    parser.add_argument("--builds", nargs=2, type=Path)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--only", default="")
    parser.add_argument("--figures", type=Path)
    return parser.parse_args()


def main():
    asked = parse()
    facts = {"version": said_by(PROGRAMS / "recorderctl", "--version"), "machine": machine()}
    if asked.builds:
        facts["builds"] = compare.described(asked.builds)
    rows = [row for name in asked.measurements for row in take(name, asked)]
    if not rows:
        sys.exit(f'bench: nothing has "{asked.only}" in its name')
    if asked.figures:
        asked.figures.write_text(json.dumps({**facts, "figures": rows}, indent=1) + "\n")


main()
