"""What requests cost: each route's process beside an empty one, and the rate behind Apache."""
import statistics
import tempfile
from dataclasses import replace
from pathlib import Path

from benchmarks import web
from benchmarks.flushes import usual_flushes
from benchmarks.recorder import AskedRecorder
from benchmarks.report import Column
from benchmarks.routes import CHANNEL_ROUTES, CHANNELS, TASK_ROUTES, chosen
from benchmarks.turns import take_turns
from places import PROGRAMS, STATE
from service_process import ended_afterwards, start_recorder

PORT = 8080
EMPTY = PROGRAMS / "bench_empty"
FLUSH = PROGRAMS / "bench_flush"
COLUMNS = [Column("us", "us"), Column("empty_us", "empty us"), Column("flushes", "flushes"),
           Column("flush_us", "flush us"), Column("ratio", "ratio", ".2f"),
           Column("peak_kb", "peak kB")]
FEW, MANY = "GET /task, 1,000 tasks", "GET /task, 10,000 tasks"


def measure(recorder, route, runs, granted):
    """The figures of one route, which may wait for so many flushes."""
    with tempfile.TemporaryDirectory() as folder, recorder.surroundings(route):
        runner = recorder.runner(route, Path(folder))
        beside = [replace(runner, program=EMPTY, inside=())]
        if route.writes:
            beside.append(replace(runner, program=FLUSH, inside=()))
        flushes = usual_flushes(runner)
        measured, *others = take_turns(runs, runner, *beside)
    us, *others_us = [statistics.median(one.us) for one in (measured, *others)]
    return {**figures(us, *others_us, flushes=flushes, granted=granted),
            "peak_kb": measured.peak_kb}


def figures(us, empty_us, flushing_us=None, *, flushes, granted):
    """Of the times of the request, the empty program and the one that flushes once. What is granted
    is taken off, but no more than there is."""
    flush_us = None if flushing_us is None else flushing_us - empty_us
    taken_off = min(flushes, granted) * (flush_us or 0)
    return {"us": us, "empty_us": empty_us, "flushes": flushes, "flush_us": flush_us,
            "ratio": (us - taken_off) / empty_us}


def take(recorder, routes, report, quick):
    """By name, the figures of each."""
    found = {}
    for route in chosen(routes, report, quick):
        recorder.prepare(route)
        granted = report.bound(route.name, "flushes", "at_most")
        found[route.name] = measure(recorder, route, route.runs_of(quick), granted)
        report.row(route.name, **found[route.name])
    return found


def tell_growth(found, report):
    if {FEW, MANY} <= found.keys():
        report.table("growth", Column("time", "time", ".2f"), Column("memory", "memory", ".2f"))
        report.row(MANY + " beside 1,000", time=found[MANY]["us"] / found[FEW]["us"],
                   memory=found[MANY]["peak_kb"] / found[FEW]["peak_kb"])


def main(report, asked):
    recorder = AskedRecorder(STATE)
    with ended_afterwards(start_recorder(PORT)):
        report.table("median of the runs, in turn with an empty static C program; the ratio is "
                     "without the flushes that are granted", *COLUMNS)
        found = take(recorder, TASK_ROUTES, report, asked.quick)
        tell_growth(found, report)
        report.table(f"{CHANNELS} channels with four recordings a day", *COLUMNS)
        take(recorder, CHANNEL_ROUTES, report, asked.quick)
        web.measure(PORT, recorder.sid, EMPTY, report, asked.quick)
