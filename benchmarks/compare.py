"""Two builds side by side: the same routes of both in turn, and whether one is faster."""
import statistics
import subprocess
import tempfile
from contextlib import ExitStack, contextmanager
from pathlib import Path

from benchmarks.bootstrap import interval, ratios, verdict
from benchmarks.recorder import AskedRecorder
from benchmarks.report import Column
from benchmarks.routes import CHANNEL_ROUTES, TASK_ROUTES, chosen
from benchmarks.turns import take_turns
from own_network import OwnNetwork
from places import STATE
from service_process import ended_afterwards, start

SERVICES = ("recorder-logd", "recording-backupd")
COLUMNS = [Column("a_us", "A us"), Column("b_us", "B us"), Column("ratio", "B/A", ".3f"),
           Column("low", "from", ".3f"), Column("high", "to", ".3f"),
           Column("verdict", "B is", "", 20)]


@contextmanager
def serving(build, name):
    """A recorder of that build, with a state and a network of its own."""
    programs = build / "bin"
    with OwnNetwork() as network, ExitStack() as stack:
        recorder = AskedRecorder(STATE / name, programs, network)
        for service in SERVICES:
            stack.enter_context(ended_afterwards(
                start(network.inside(programs / service), service + ": listening",
                      env=recorder.environment)))
        yield recorder


def described(builds):
    """Which builds A and B are."""
    return {name: {"folder": str(build), "version": subprocess.run(
        [build / "bin/recorderctl", "--version"], check=True, text=True,
        stdout=subprocess.PIPE).stdout.strip()} for name, build in zip("AB", builds)}


def measure(recorders, route, runs):
    with tempfile.TemporaryDirectory() as folder, ExitStack() as stack:
        for recorder in recorders:
            stack.enter_context(recorder.surroundings(route))
        a, b = take_turns(runs, *(recorder.runner(route, Path(folder)) for recorder in recorders))
    found = ratios(a.us, b.us)
    low, high = interval(found)
    return {"a_us": statistics.median(a.us), "b_us": statistics.median(b.us),
            "ratio": statistics.median(found), "low": low, "high": high,
            "verdict": verdict(low, high), "a_peak_kb": a.peak_kb, "b_peak_kb": b.peak_kb}


def main(report, asked):
    with serving(asked.builds[0], "a") as a, serving(asked.builds[1], "b") as b:
        for name, build in described(asked.builds).items():
            print(f"{name}: {build['folder']}, {build['version']}")
        report.table("medians of runs in turn; 99 of 100 times the true B/A is between from and to",
                     *COLUMNS)
        for route in chosen(TASK_ROUTES + CHANNEL_ROUTES, report, asked.quick):
            for recorder in (a, b):
                recorder.prepare(route)
            report.row(route.name, **measure((a, b), route, route.runs_of(asked.quick)))
